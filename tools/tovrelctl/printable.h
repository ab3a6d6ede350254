/** Texts of others, as a person gets to see them. */
#pragma once

#include <string>

namespace tovrelctl {

/**
 * A text that does nothing to a terminal but be shown: on one line, valid UTF-8, and with an escape
 * of JSON (\n, \t, \u001B) in the place of each character that is not printable. Backslashes stay
 * as they are: a line of JSON still says the same, and any other text is for people.
 */
std::string printable(const std::string &text);

} // namespace tovrelctl
