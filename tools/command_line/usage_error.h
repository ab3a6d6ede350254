/** The failure that a person mends by writing another command line. */
#pragma once

#include <stdexcept>

namespace command_line {

/** The command line is wrong; the message tells the person what to write instead. */
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace command_line
