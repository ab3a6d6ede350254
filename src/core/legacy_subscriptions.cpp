/** The legacy methods that replace and list the MQTT-to-event items. */
#include "core/bus_fields.h"
#include "core/dbus_handler.h"
#include "core/reply_limit.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"
#include "mqtt/subscription_store.h"

#include <algorithm>
#include <string>

namespace tovrel {

namespace {

constexpr std::size_t MAX_TOPIC_BYTES = 4096;
constexpr glong MAX_TOPIC_CHARACTERS = 1024;

constexpr int APPLIED = 0;
constexpr int RECORD_REJECTED = -1;
constexpr int CONFIGURATION_REJECTED = -2;

/** One item as it stands in a message. */
struct Record {
    std::string topicFilter;
    bool useDeviceTopicPrefix = false;
    std::int32_t qos = 0;
    bool isStateData = false;
};

constexpr const char *RECORD_SIGNATURE =
    STRUCT_SIGNATURE<std::string, bool, std::int32_t, bool>.data();

int readRecord(sd_bus_message *message, Record &record)
{
    return readStruct(message, record.topicFilter, record.useDeviceTopicPrefix, record.qos,
                      record.isStateData);
}

bool isUsableTopic(const std::string &topic)
{
    const std::size_t checked = std::min(topic.size(), MAX_TOPIC_BYTES);
    const char *validEnd = nullptr;
    g_utf8_validate_len(topic.data(), checked, &validEnd);
    if (static_cast<std::size_t>(validEnd - topic.data()) < topic.size()) {
        return false;
    }
    const glong characters = g_utf8_strlen(topic.data(), static_cast<gssize>(topic.size()));
    return characters >= 1 && characters <= MAX_TOPIC_CHARACTERS;
}

/** Why a record cannot be an item, as it is logged; null when it can. */
const char *findFault(const Record &record)
{
    if (!isUsableTopic(record.topicFilter)) {
        return "Cannot create MQTT to Event configuration - Invalid topic";
    }
    if (record.isStateData && record.topicFilter.find_first_of("#+") != std::string::npos) {
        return "Cannot produce stateful event with wildcard in MQTT topic";
    }
    return nullptr;
}

void skipRecords(sd_bus_message *message)
{
    while (sd_bus_message_skip(message, RECORD_SIGNATURE) > 0) {
    }
}

/** Adds a record to the items; the status of that. */
int addRecord(SubscriptionStore &store, const Record &record)
{
    try {
        store.addSubscription(record.topicFilter, record.useDeviceTopicPrefix, record.qos,
                              record.isStateData);
    } catch (const SubscribeConfigException &) {
        return RECORD_REJECTED;
    }
    return APPLIED;
}

/** Reads the records of an entered array into the items; the status of the worst of them. */
int readRecords(sd_bus_message *message, SubscriptionStore &store)
{
    int status = APPLIED;
    Record record;
    int result = 0;
    while ((result = readRecord(message, record)) > 0) {
        if (const char *const fault = findFault(record)) {
            tovrel_log(LOG_LEVEL_PROGRESS, "%s%s", LOG_PREFIX, fault);
            skipRecords(message);
            return RECORD_REJECTED;
        }
        status = std::min(status, addRecord(store, record));
    }
    if (result < 0) {
        throw SdBusException(std::string("Failed to read message:") + g_strerror(-result));
    }
    return status;
}

int apply(BaseEventBridge &bridge, const SubscriptionStore &store)
{
    try {
        bridge.replaceSubscriptions(store);
    } catch (const SubscribeConfigException &) {
        return CONFIGURATION_REJECTED;
    }
    return APPLIED;
}

} // namespace

int DbusHandler::handleSetMQTTToEventConfig(sd_bus_message *message, sd_bus_error * /*error*/)
{
    SubscriptionStore store;
    int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, RECORD_SIGNATURE);
    if (result < 0) {
        throw SdBusException(std::string("Failed to open DBus array:") + g_strerror(-result));
    }
    int status = readRecords(message, store);
    result = sd_bus_message_exit_container(message);
    if (result < 0) {
        throw SdBusException(std::string("Failed to exit container:") + g_strerror(-result));
    }
    if (bridge != nullptr && status == APPLIED) {
        status = apply(*bridge, store);
    }
    return sd_bus_reply_method_return(message, "i", status);
}

int DbusHandler::fillMQTTToEventConfigReply(sd_bus_message *reply)
{
    int result = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, RECORD_SIGNATURE);
    if (result < 0) {
        throw SdBusException(std::string("Error opening reply container: ") + g_strerror(-result));
    }
    if (bridge == nullptr) {
        throw SdBusException("Could not construct reply");
    }
    ReplySize size;
    for (const auto &[id, item] : std::as_const(*bridge).getSubscriptions().items) {
        result = size.add({item.topicFilter});
        if (result >= 0) {
            result = appendStruct(reply, item.topicFilter, item.useDeviceTopicPrefix, item.qos,
                                  item.isStateData);
        }
        if (result < 0) {
            throw SdBusException(std::string("Error appending to reply message: ") +
                                 g_strerror(-result));
        }
    }
    result = sd_bus_message_close_container(reply);
    if (result < 0) {
        throw SdBusException(std::string("Error closing reply container: ") + g_strerror(-result));
    }
    return sd_bus_send(bus, reply, nullptr);
}

} // namespace tovrel
