#include "mqtt/topic_rules.h"

#include <mosquitto.h>

#include <algorithm>
#include <utility>

namespace norq::mqtt {
namespace {

constexpr std::string_view SHARED = "$share/";

/** The checks that topics and filters have in common. */
Verdict checkText(std::string_view given, const std::string &completed, const char *what)
{
    if (given.empty()) {
        return refuse(MQTTMSG_INVALID_TOPIC, std::string("The ") + what + " is empty");
    }
    if (completed.size() > MAX_TOPIC) {
        return refuse(MQTTMSG_TOO_LARGE, std::string("The ") + what + " has " +
                                             std::to_string(completed.size()) +
                                             " bytes, at most 65535 are allowed");
    }
    if (mosquitto_validate_utf8(completed.data(), static_cast<int>(completed.size())) !=
        MOSQ_ERR_SUCCESS) {
        return refuse(MQTTMSG_INVALID_TOPIC,
                      std::string("The ") + what +
                          " is not valid UTF-8 or contains control characters");
    }
    if (std::ranges::count(completed, '/') > static_cast<std::ptrdiff_t>(MAX_SLASHES)) {
        return refuse(MQTTMSG_INVALID_TOPIC, std::string("The ") + what +
                                                 " has too many levels, at most " +
                                                 std::to_string(MAX_SLASHES + 1) + " are allowed");
    }
    return {};
}

} // namespace

Verdict refuse(MQTTMsg_result code, std::string text)
{
    return {code, std::move(text)};
}

std::string withPrefix(const std::string &prefix, std::string_view topic, bool usePrefix)
{
    std::string result;
    if (usePrefix && !prefix.empty()) {
        result.reserve(prefix.size() + 1 + topic.size());
        result.append(prefix).push_back('/');
    }
    return result.append(topic);
}

bool hasPrefix(const std::string &prefix, std::string_view topic)
{
    return !prefix.empty() && topic.size() > prefix.size() + 1 && topic.starts_with(prefix) &&
           topic[prefix.size()] == '/';
}

Verdict checkTopic(std::string_view topic, const std::string &completed)
{
    if (Verdict verdict = checkText(topic, completed, "topic"); !verdict.ok()) {
        return verdict;
    }
    if (mosquitto_pub_topic_check2(completed.data(), completed.size()) != MOSQ_ERR_SUCCESS) {
        return refuse(MQTTMSG_INVALID_TOPIC, "The topic contains a wildcard");
    }
    return {};
}

Verdict checkFilter(std::string_view filter, const std::string &completed)
{
    if (Verdict verdict = checkText(filter, completed, "topic filter"); !verdict.ok()) {
        return verdict;
    }
    if (mosquitto_sub_topic_check2(completed.data(), completed.size()) != MOSQ_ERR_SUCCESS) {
        return refuse(MQTTMSG_INVALID_TOPIC, "The topic filter has a misplaced wildcard");
    }
    return {};
}

Verdict checkPayloadSize(std::size_t topicLength, std::size_t payloadLength, int qos)
{
    constexpr std::size_t LENGTH_FIELD = 2;
    constexpr std::size_t PACKET_ID = 2;
    const std::size_t header = LENGTH_FIELD + topicLength + (qos > 0 ? PACKET_ID : 0);
    if (payloadLength > MAX_REMAINING_LENGTH - header) {
        return refuse(MQTTMSG_TOO_LARGE, "The payload has " + std::to_string(payloadLength) +
                                             " bytes, at most " +
                                             std::to_string(MAX_REMAINING_LENGTH - header) +
                                             " are allowed with this topic");
    }
    return {};
}

bool filterMatches(std::string_view filter, std::string_view topic)
{
    if (filter.starts_with(SHARED)) {
        const std::size_t group = filter.find('/', SHARED.size());
        filter = group == std::string_view::npos ? std::string_view() : filter.substr(group + 1);
    }
    bool matches = false;
    return mosquitto_topic_matches_sub2(filter.data(), filter.size(), topic.data(), topic.size(),
                                        &matches) == MOSQ_ERR_SUCCESS &&
           matches;
}

} // namespace norq::mqtt
