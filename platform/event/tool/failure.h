/** How the tool ends, and the two kinds of failure that its commands throw. */
#pragma once

#include "command_line/usage_error.h"

#include <stdexcept>

namespace norq::tool {

/** Exit statuses, the same for every command. */
enum ExitStatus : int {
    EXIT_DONE = 0,     /**< what was asked for was done */
    EXIT_FAILED = 1,   /**< wrong usage, or something failed; standard error says what */
    EXIT_TIMED_OUT = 3 /**< the time was over before the wanted number of events came */
};

using command_line::UsageError;

/** What was asked for cannot be done. */
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace norq::tool
