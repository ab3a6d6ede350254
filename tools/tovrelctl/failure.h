/** How the tool ends, and what its parts throw. */
#pragma once

#include <stdexcept>
#include <string>

namespace tovrelctl {

/** Exit statuses, the same for every command. */
enum ExitStatus : int {
    EXIT_DONE = 0,       /**< what was asked for was done */
    EXIT_FAILED = 1,     /**< the service refused it, or a file or an answer was no good */
    EXIT_USAGE = 2,      /**< the command line is wrong */
    EXIT_UNREACHABLE = 3 /**< there was no answer from the service */
};

/** What was asked for cannot be done; the message says why, and what can be done about it. */
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** The service answered with an error. */
class Refused : public Failure {
public:
    /** `answerCode` and the message as docs/configuration-api.md has them. */
    Refused(int answerCode, const std::string &message) : Failure(message), code(answerCode) {}

    int code;
};

/** The service gave no answer. */
class Unreachable : public Failure {
public:
    using Failure::Failure;
};

} // namespace tovrelctl
