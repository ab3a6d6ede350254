/** Where the event-to-MQTT configuration is kept. Functions, so that tests can link other folders.
 */
#pragma once

namespace tovrel {

/** The configuration file. */
const char *publicationFile() noexcept;

/** The configuration file of the former format; it is migrated and deleted. */
const char *legacyPublicationFile() noexcept;

} // namespace tovrel
