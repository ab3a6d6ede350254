/** Standard output of a command-line tool. */
#pragma once

#include <string>

namespace command_line {

/**
 * Writes a text as it stands, and gets it out of the process. Throws std::runtime_error when it
 * cannot be written. A reader that has gone ends the process by SIGPIPE, as of any other tool.
 */
void print(const std::string &text);

} // namespace command_line
