/** Where the MQTT-to-event items are kept. */
#pragma once

namespace tovrel {

/** The configuration file. */
inline constexpr const char *SUBSCRIPTIONS_FILE = "/etc/tovrel/subscriptions_v2.conf";
/** The configuration file of the former format, without ids; it is migrated and deleted. */
inline constexpr const char *LEGACY_SUBSCRIPTIONS_FILE = "/etc/tovrel/subscriptions.conf";

} // namespace tovrel
