/** Logging of the event service and its library. */
#pragma once

#include <glib.h>

namespace norq::event {

/** GLib's first user-defined level, which the platform logger knows as error. */
inline constexpr int LOG_ERROR_LEVEL = 256;

} // namespace norq::event

/**
 * Writes one line through g_log() with no log domain. Any thread; never with a lock held. The
 * level is an int because GLogLevelFlags cannot hold 256 in C++; see log.c.
 */
extern "C" void norq_event_log(int level, const char *format, ...) G_GNUC_PRINTF(2, 3);
