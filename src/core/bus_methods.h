/**
 * The methods that the service has on the system bus: what sd-bus calls.
 *
 * Each is a thin frame around an operation of BaseDbusHandler. It turns the expected exceptions
 * into D-Bus errors and carries all others to the main loop; the caller is answered in either case
 * (there is one exception, of long standing: GetEventToMQTTConfig without a handler).
 */
#pragma once

#include <systemd/sd-bus.h>

#include <array>

namespace tovrel {

/**
 * Name of every error that the service answers with while it goes on. A failure that ends it is
 * answered with org.freedesktop.DBus.Error.IOError.
 */
inline constexpr const char *INTERNAL_ERROR = "com.norq.Tovrel1.InternalError";

/**
 * The table of the legacy interface: a start, four methods, an end. The user data of its methods is
 * a BaseDbusHandler. To be copied byte by byte only: sd-bus wants unused bytes of a table to be
 * zero, which static data is.
 */
extern const std::array<sd_bus_vtable, 6> LEGACY_METHODS;

/**
 * The table of the configuration API: a start, one method, an end. The user data of its method is a
 * BaseDbusHandler, namely a DbusHandler. To be copied as the other table.
 */
extern const std::array<sd_bus_vtable, 3> API_METHODS;

} // namespace tovrel
