#include "fakes/fake_mqtt.h"

#include "fakes/call_record.h"

#include <cstring>
#include <sstream>
#include <string_view>

struct MQTTMsg {
    std::string lastTopic; // written by every call, so that tools see calls on a deleted handle
};

namespace tovrel::test {

namespace {

bool matchLevels(std::string_view filter, std::string_view topic)
{
    const std::string_view filterLevel = filter.substr(0, filter.find('/'));
    if (filterLevel == "#") {
        return true;
    }
    const std::string_view topicLevel = topic.substr(0, topic.find('/'));
    if (filterLevel != "+" && filterLevel != topicLevel) {
        return false;
    }
    const bool filterEnds = filterLevel.size() == filter.size();
    const bool topicEnds = topicLevel.size() == topic.size();
    if (filterEnds || topicEnds) {
        return filterEnds == topicEnds || filter.substr(filterLevel.size()) == "/#";
    }
    return matchLevels(filter.substr(filterLevel.size() + 1), topic.substr(topicLevel.size() + 1));
}

template <typename... Arguments>
void recordMqttCall(const char *function, const Arguments &...arguments)
{
    std::ostringstream text;
    text << function;
    ((text << ' ' << arguments), ...);
    recordCall(text.str());
}

/** The answer to a call on a handle: the library's for a missing one, else as scripted. */
int answer(MQTTMsg_t *handle, const char *function, const char *topic, char **errorText)
{
    if (handle == nullptr) {
        *errorText = strdup("no handle");
        return MQTTMSG_INVALID_ARGUMENT;
    }
    handle->lastTopic = topic;
    if (!shallFail(function)) {
        return MQTTMSG_OK;
    }
    if (fakeMqtt().failureText) {
        *errorText = strdup(fakeMqtt().failureText->c_str());
    }
    return fakeMqtt().failureResult;
}

} // namespace

FakeMqtt &fakeMqtt()
{
    static FakeMqtt instance;
    return instance;
}

void resetFakeMqtt()
{
    fakeMqtt() = {};
}

void FakeMqtt::deliver(const char *topic, bool devicePrefix, const std::string &payload) const
{
    callback(topic, devicePrefix, payload.data(), static_cast<int>(payload.size()), userData);
}

} // namespace tovrel::test

using namespace tovrel::test;

MQTTMsg_t *MQTTMsg_new2(MQTTMsg_message_callback callback, void *user_data)
{
    recordMqttCall("MQTTMsg_new2");
    if (shallFail("MQTTMsg_new2")) {
        return nullptr;
    }
    fakeMqtt().callback = callback;
    fakeMqtt().userData = user_data;
    ++fakeMqtt().livingHandles;
    return new MQTTMsg;
}

int MQTTMsg_init(MQTTMsg_t *handle, int flags)
{
    recordMqttCall("MQTTMsg_init", flags);
    if (handle == nullptr) {
        return MQTTMSG_INVALID_ARGUMENT;
    }
    return shallFail("MQTTMsg_init") ? fakeMqtt().failureResult : MQTTMSG_OK;
}

void MQTTMsg_delete(MQTTMsg_t *handle)
{
    recordMqttCall("MQTTMsg_delete");
    if (handle != nullptr) {
        --fakeMqtt().livingHandles;
    }
    delete handle;
}

int MQTTMsg_publish(MQTTMsg_t *handle, const char *topic, bool use_device_topic_prefix,
                    const char *payload, size_t payload_length, int qos, bool retain,
                    char **error_text)
{
    recordMqttCall("MQTTMsg_publish", topic, use_device_topic_prefix,
                   std::string(payload, payload_length), qos, retain);
    if (fakeMqtt().onPublish) {
        fakeMqtt().onPublish();
    }
    return answer(handle, "MQTTMsg_publish", topic, error_text);
}

int MQTTMsg_subscribe(MQTTMsg_t *handle, const char *topic_filter, int qos,
                      bool use_device_topic_prefix, char **error_text)
{
    recordMqttCall("MQTTMsg_subscribe", topic_filter, qos, use_device_topic_prefix);
    return answer(handle, "MQTTMsg_subscribe", topic_filter, error_text);
}

int MQTTMsg_unsubscribe(MQTTMsg_t *handle, const char *topic_filter, bool use_device_topic_prefix,
                        char **error_text)
{
    recordMqttCall("MQTTMsg_unsubscribe", topic_filter, use_device_topic_prefix);
    return answer(handle, "MQTTMsg_unsubscribe", topic_filter, error_text);
}

bool MQTTMsg_topic_matches(const char *topic_filter, const char *topic)
{
    return fakeMqtt().topicMatches ? fakeMqtt().topicMatches(topic_filter, topic)
                                   : matchLevels(topic_filter, topic);
}

bool MQTTMsg_check_sub_topic(const char *topic_filter)
{
    const std::string_view filter = topic_filter;
    const auto wildcard = filter.find('#');
    return !filter.empty() && !shallFail("MQTTMsg_check_sub_topic") &&
           (wildcard == std::string_view::npos || wildcard + 1 == filter.size());
}
