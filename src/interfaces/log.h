/** Logging of the service: levels, prefix, and the one call that writes a line. */
#pragma once

#include <glib.h>

namespace tovrel {

/** Level of errors: GLib's first user-defined level, which the platform logger knows as error. */
inline constexpr int LOG_LEVEL_FAILURE = 256;
/** Level of fallbacks and skipped configuration. */
inline constexpr int LOG_LEVEL_WARN = G_LOG_LEVEL_WARNING;
/** Level of progress and of failed publications. */
inline constexpr int LOG_LEVEL_PROGRESS = G_LOG_LEVEL_INFO;

/** What the "%s" that opens every format is filled with. */
inline constexpr const char *LOG_PREFIX = "";

} // namespace tovrel

/**
 * Writes one line through g_log() with no log domain. Any thread; must not be called with a lock
 * held. The level is an int because GLogLevelFlags cannot hold 256 in C++; see log.c.
 */
extern "C" void tovrel_log(int level, const char *format, ...) G_GNUC_PRINTF(2, 3);
