/** What the device events made of MQTT messages look like. */
#pragma once

#include "interfaces/c_handles.h"

#include <norq/event_producer.h>

#include <string>

namespace tovrel {

/** Keys of these events. */
inline constexpr const char *KEY_MQTT_TOPIC = "mqtt-topic";
inline constexpr const char *KEY_MQTT_PAYLOAD = "mqtt-payload";
inline constexpr const char *KEY_DEVICE_PREFIX = "device-prefix";

/** A declaration under construction. */
using DeclarationHandle = CHandle<event_declaration_t, event_declaration_free>;

/** The stateless event with open topic and prefix flag. Null when the event service refuses it. */
DeclarationHandle makeGenericStatelessDeclaration();

/** The stateless event of one topic filter. Null when the event service refuses it. */
DeclarationHandle makeStatelessDeclaration(const std::string &topicFilter,
                                           bool useDeviceTopicPrefix);

/**
 * The stateful event of one topic filter, with the payload as its state. Null when the event
 * service refuses it.
 */
DeclarationHandle makeStatefulDeclaration(const std::string &topicFilter,
                                          bool useDeviceTopicPrefix);

} // namespace tovrel
