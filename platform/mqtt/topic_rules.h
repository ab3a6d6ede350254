/**
 * What may stand in a topic or a filter. The rules of MQTT are libmosquitto's; on top comes what
 * brokers are known to end a connection for although the client library lets it pass.
 */
#pragma once

#include <norq/mqtt_messaging.h>

#include <string>
#include <string_view>

namespace norq::mqtt {

/** Longest topic or filter in bytes, prefix included. */
inline constexpr std::size_t MAX_TOPIC = 65535;

/**
 * Most "/" in a topic or filter. MQTT knows no such limit, but the usual broker takes more as a
 * protocol error and closes the connection; a message with QoS 1 would then do so again and again.
 */
inline constexpr std::size_t MAX_SLASHES = 200;

/** Largest part of an MQTT packet after its fixed header. */
inline constexpr std::size_t MAX_REMAINING_LENGTH = 268'435'455;

/** Outcome of a check: MQTTMSG_OK, or a code with a text that says what is wrong. */
struct Verdict {
    MQTTMsg_result code = MQTTMSG_OK;
    std::string text;
    [[nodiscard]] bool ok() const { return code == MQTTMSG_OK; }
};

/** A refusal. */
Verdict refuse(MQTTMsg_result code, std::string text);

/** Puts the prefix and one "/" in front when the flag is set and the prefix is not empty. */
std::string withPrefix(const std::string &prefix, std::string_view topic, bool usePrefix);

/**
 * Whether a topic stands below the prefix, so that the prefix can be taken off: it begins with the
 * prefix and "/", and something follows. Never with an empty prefix.
 */
bool hasPrefix(const std::string &prefix, std::string_view topic);

/**
 * Checks a topic to publish to.
 *
 * @param topic      what the caller gave
 * @param completed  the same with the prefix
 */
Verdict checkTopic(std::string_view topic, const std::string &completed);

/** Checks a filter to subscribe, as checkTopic(). */
Verdict checkFilter(std::string_view filter, const std::string &completed);

/** Checks whether a packet with this topic (prefix included) can carry a payload of this size. */
Verdict checkPayloadSize(std::size_t topicLength, std::size_t payloadLength, int qos);

/** Whether a complete filter matches a topic; a shared subscription by the filter it shares. */
bool filterMatches(std::string_view filter, std::string_view topic);

} // namespace norq::mqtt
