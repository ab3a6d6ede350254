#include "mqtt/client.h"

#include <mosquitto.h>
#include <norq/mqtt_messaging.h>

#include <cstring>
#include <exception>
#include <new>

using norq::mqtt::Client;
using norq::mqtt::refuse;
using norq::mqtt::Verdict;

/** The handle that callers hold. */
struct MQTTMsg {
    Client client;
};

namespace {

/** No exception leaves the library; a refusal gets its text. */
template <typename Action>
int guarded(char **errorText, Action action) noexcept
{
    Verdict verdict;
    try {
        verdict = action();
    } catch (const std::bad_alloc &) {
        verdict.code = MQTTMSG_NO_MEMORY;
    } catch (const std::exception &error) {
        verdict.code = MQTTMSG_FAILED;
        if (errorText != nullptr) {
            *errorText = strdup(error.what());
        }
        return verdict.code;
    }
    if (!verdict.ok() && errorText != nullptr) {
        *errorText = strdup(verdict.text.empty() ? "Out of memory" : verdict.text.c_str());
    }
    return verdict.code;
}

} // namespace

MQTTMsg_t *MQTTMsg_new2(MQTTMsg_message_callback callback, void *user_data)
{
    if (callback == nullptr) {
        return nullptr;
    }
    try {
        return new MQTTMsg{.client = Client(callback, user_data)};
    } catch (const std::exception &) {
        return nullptr;
    }
}

int MQTTMsg_init(MQTTMsg_t *handle, int flags)
{
    return guarded(nullptr, [&] {
        return handle != nullptr ? handle->client.init(flags)
                                 : refuse(MQTTMSG_INVALID_ARGUMENT, "The handle is NULL");
    });
}

void MQTTMsg_delete(MQTTMsg_t *handle)
{
    delete handle;
}

int MQTTMsg_publish(MQTTMsg_t *handle, const char *topic, bool use_device_topic_prefix,
                    const char *payload, size_t payload_length, int qos, bool retain,
                    char **error_text)
{
    return guarded(error_text, [&] {
        if (handle == nullptr || topic == nullptr || (payload == nullptr && payload_length > 0)) {
            return refuse(MQTTMSG_INVALID_ARGUMENT, "The handle, topic or payload is NULL");
        }
        return handle->client.publish(topic, use_device_topic_prefix, {payload, payload_length},
                                      qos, retain);
    });
}

int MQTTMsg_subscribe(MQTTMsg_t *handle, const char *topic_filter, int qos,
                      bool use_device_topic_prefix, char **error_text)
{
    return guarded(error_text, [&] {
        if (handle == nullptr || topic_filter == nullptr) {
            return refuse(MQTTMSG_INVALID_ARGUMENT, "The handle or topic filter is NULL");
        }
        return handle->client.subscribe(topic_filter, qos, use_device_topic_prefix);
    });
}

int MQTTMsg_unsubscribe(MQTTMsg_t *handle, const char *topic_filter, bool use_device_topic_prefix,
                        char **error_text)
{
    return guarded(error_text, [&] {
        if (handle == nullptr || topic_filter == nullptr) {
            return refuse(MQTTMSG_INVALID_ARGUMENT, "The handle or topic filter is NULL");
        }
        return handle->client.unsubscribe(topic_filter, use_device_topic_prefix);
    });
}

bool MQTTMsg_topic_matches(const char *topic_filter, const char *topic)
{
    bool matches = false;
    return topic_filter != nullptr && topic != nullptr &&
           mosquitto_sub_topic_check(topic_filter) == MOSQ_ERR_SUCCESS &&
           mosquitto_pub_topic_check(topic) == MOSQ_ERR_SUCCESS &&
           mosquitto_topic_matches_sub(topic_filter, topic, &matches) == MOSQ_ERR_SUCCESS &&
           matches;
}

bool MQTTMsg_check_sub_topic(const char *topic_filter)
{
    return topic_filter != nullptr && norq::mqtt::checkFilter(topic_filter, topic_filter).ok();
}
