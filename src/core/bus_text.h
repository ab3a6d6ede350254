/**
 * Texts in the form that the bus carries: sd-bus refuses the noncharacters of Unicode (U+FFFE and
 * the like), which are valid UTF-8 all the same. An error with one would never reach its caller.
 */
#pragma once

#include <string>

namespace tovrel {

/** A text for a reader: what cannot be sent, also invalid UTF-8, has become U+FFFD. */
std::string sendableText(const char *text);

} // namespace tovrel
