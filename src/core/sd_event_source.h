/** Drives an sd-event loop, and with it everything attached to that loop, from a GLib main loop. */
#pragma once

#include <glib.h>
#include <systemd/sd-event.h>

namespace tovrel {

/**
 * Attaches a source that polls, runs and keeps a reference to `loop` to the default GLib main
 * context. Returns the id of the source, which stays until sd-event reports its end or an error
 * from dispatching. Throws SdBusException when the loop has no descriptor to poll.
 *
 * sd-event's timers are behind its descriptor as well, so the source needs no time-out.
 */
guint attachSdEventSource(sd_event *loop);

} // namespace tovrel
