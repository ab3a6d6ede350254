/** Where the MQTT-to-event items are kept. Functions, so that tests can link other folders. */
#pragma once

namespace tovrel {

/** The configuration file. */
const char *subscriptionsFile() noexcept;

/** The configuration file of the former format, without ids; it is migrated and deleted. */
const char *legacySubscriptionsFile() noexcept;

} // namespace tovrel
