/** How the tool ends, and what its parts throw. */
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace tovrelctl {

/** Exit statuses, the same for every command. */
enum ExitStatus : int {
    EXIT_DONE = 0,       /**< what was asked for was done */
    EXIT_FAILED = 1,     /**< the service refused it, or a file or an answer was no good */
    EXIT_USAGE = 2,      /**< the command line is wrong */
    EXIT_UNREACHABLE = 3 /**< there was no answer from the service */
};

/** What was asked for cannot be done. */
class Failure : public std::runtime_error {
public:
    /** @param message why, on one line; may hold texts of others as they stand */
    explicit Failure(const std::string &message) : std::runtime_error(message) {}

    /**
     * @param message as above
     * @param advice  what the person can do about it, or has to know: lines without a line feed
     *                behind the last one; may be empty
     */
    Failure(const std::string &message, std::string advice)
        : std::runtime_error(message), hint(std::move(advice))
    {
    }

    const std::string &advice() const { return hint; }

    /** Adds lines to the advice. */
    void addAdvice(const std::string &more)
    {
        hint += (hint.empty() || more.empty() ? "" : "\n") + more;
    }

private:
    std::string hint;
};

/** The service answered with an error; the message is the service's own. */
class Refused : public Failure {
public:
    using Failure::Failure;
};

/** The service gave no answer. */
class Unreachable : public Failure {
public:
    using Failure::Failure;
};

} // namespace tovrelctl
