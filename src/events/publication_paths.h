/** Where the event-to-MQTT configuration is kept. */
#pragma once

namespace tovrel {

inline constexpr const char *PUBLICATION_LEGACY_PATH = "/etc/tovrel/event_to_mqtt.conf";
inline constexpr const char *PUBLICATION_PATH = "/etc/tovrel/event_to_mqtt_v2.conf";

} // namespace tovrel
