/** From a device event to an MQTT message: what is taken from the event, and what is made of it. */
#pragma once

#include "events/event_container.h"
#include "events/publication_config.h"

#include <norq/event.h>

#include <string>

namespace tovrel {

/**
 * Fills `container` from `event` (borrowed). A non-null `serialNumber` is put into the payload.
 * Throws std::logic_error when the event has no JSON rendering. Any thread.
 */
void extractEvent(EventContainer &container, const event_t *event, const char *serialNumber);

/** An MQTT topic and whether the MQTT client puts the device's prefix in front of it. */
struct MqttTopic {
    std::string topic;
    bool useDeviceTopicPrefix = false;
};

/** The topic under which an event is published. */
MqttTopic mqttTopicFor(const EventContainer &container, const PublicationSettings &settings);

/** Whether the message of an event is retained by the broker. */
bool isRetained(const EventContainer &container);

} // namespace tovrel
