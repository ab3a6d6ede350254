/** The legacy methods that replace and list the event-to-MQTT configuration. */
#include "core/bus_fields.h"
#include "core/dbus_handler.h"
#include "core/reply_limit.h"
#include "events/publication_config.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <string>
#include <utility>

namespace tovrel {

namespace {

constexpr int NOT_APPLIED = -1;

constexpr const char *FILTER_SIGNATURE =
    STRUCT_SIGNATURE<std::string, std::string, std::int32_t>.data();

int readSettings(sd_bus_message *message, PublicationConfig &config)
{
    PublicationSettings settings;
    const int result = readFields(message, settings.topicPrefixSetting, settings.customTopicPrefix,
                                  settings.appendEventTopic, settings.includeTopicNamespaces,
                                  settings.includeSerialNumberInPayload);
    if (result < 0) {
        return result;
    }
    config.setTopicPrefixSetting(settings.topicPrefixSetting);
    config.setCustomTopicPrefix(settings.customTopicPrefix);
    config.setAppendEventTopic(settings.appendEventTopic);
    config.setIncludeTopicNamespaces(settings.includeTopicNamespaces);
    config.setIncludeSerialNumberInPayload(settings.includeSerialNumberInPayload);
    return result;
}

/** Adds filters until there are no more or one cannot be read; the result of the last reading. */
int readFilters(sd_bus_message *message, PublicationConfig &config)
{
    std::string topicFilter;
    std::string retain;
    std::int32_t qos = 0;
    int result = 0;
    while ((result = readStruct(message, topicFilter, retain, qos)) > 0) {
        config.addEventFilter(EventFilterConfig(topicFilter.c_str(), qos, retain.c_str()));
    }
    return result;
}

/** Throws for a failed step of a reply, logged as `format` with the error's text in it. */
void require(int result, const char *what)
{
    if (result >= 0) {
        return;
    }
    tovrel_log(LOG_LEVEL_FAILURE, "%s%s: %s", LOG_PREFIX, what, g_strerror(-result));
    throw SdBusException("Error constructing reply");
}

void appendSettings(sd_bus_message *reply, ReplySize &size, const PublicationSettings &settings)
{
    require(size.add({settings.topicPrefixSetting, settings.customTopicPrefix}),
            "Error appending status code");
    require(appendFields(reply, settings.topicPrefixSetting, settings.customTopicPrefix,
                         settings.appendEventTopic, settings.includeTopicNamespaces,
                         settings.includeSerialNumberInPayload),
            "Error appending status code");
}

void appendFilters(sd_bus_message *reply, ReplySize &size, const EventFilters &filters)
{
    require(sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, FILTER_SIGNATURE),
            "Error opening reply container");
    for (const auto &[id, filter] : filters) {
        require(size.add({filter.getTopicFilter()}), "Error appending status code");
        require(appendStruct(reply, filter.getTopicFilter(), filter.retainPolicyText(),
                             filter.getQos()),
                "Error appending status code");
    }
    require(sd_bus_message_close_container(reply), "Error closing reply container");
}

} // namespace

int DbusHandler::handleSetEventToMQTTConfig(sd_bus_message *message)
{
    PublicationConfig config;
    int status = readSettings(message, config);
    if (status < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not parse event-to-MQTT configuration: %s",
                   LOG_PREFIX, g_strerror(-status));
        return status;
    }
    const int entered =
        sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, FILTER_SIGNATURE);
    if (entered < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to open DBus array: %s", LOG_PREFIX,
                   g_strerror(-entered));
    }
    status = readFilters(message, config);
    if (bridge == nullptr) {
        return status;
    }
    try {
        bridge->setPublicationConfig(config);
    } catch (const std::exception &failure) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sError: %s", LOG_PREFIX, failure.what());
        return NOT_APPLIED;
    }
    return status;
}

int DbusHandler::fillEventToMQTTConfigReply(sd_bus_message *reply)
{
    if (bridge == nullptr) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCan not get event-to-MQTT configurations", LOG_PREFIX);
        throw SdBusException("Error creating reply");
    }
    const PublicationConfig &config = std::as_const(*bridge).getPublicationConfig();
    ReplySize size;
    appendSettings(reply, size, config.getSettings());
    appendFilters(reply, size, config.getEventFilters());
    return sd_bus_send(bus, reply, nullptr);
}

} // namespace tovrel
