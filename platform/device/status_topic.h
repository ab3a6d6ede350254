/** The topic under which the device's MQTT client announces its status. */
#pragma once

#include <array>

namespace norq::device {

/** One level of a topic: the event's key for it, and its value. */
struct TopicLevel {
    const char *key;
    const char *value;
};

/** The status event's topic. */
inline constexpr std::array STATUS_TOPIC{TopicLevel{"topic0", "Device"},
                                         TopicLevel{"topic1", "MQTT"},
                                         TopicLevel{"topic2", "ClientStatus"}};

} // namespace norq::device
