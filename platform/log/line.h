/** What becomes of a message before it is written: one line, a priority, a bound. */
#pragma once

#include <string>
#include <string_view>

namespace norq::log {

/** Most bytes of a message that are logged; what is beyond is counted instead. */
inline constexpr std::size_t MAX_MESSAGE = 32 * 1024;

/**
 * The message as one line of valid UTF-8. Control characters, line and paragraph separators and
 * bytes that are not UTF-8 are written as in C: "\n", "\t", "\r", "\x1b".
 */
std::string toLine(std::string_view message);

/** The priority of syslog(3) for one of GLib's levels; the most severe if there are several. */
int priorityOf(unsigned int level);

/** The priority's name, as journalctl and syslog.conf have it. */
const char *priorityName(int priority);

} // namespace norq::log
