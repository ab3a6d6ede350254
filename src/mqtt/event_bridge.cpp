#include "mqtt/event_bridge.h"

#include "events/publication_config.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

namespace tovrel {

namespace {

bool hasWildcard(const std::string &topicFilter)
{
    return topicFilter.find_first_of("#+") != std::string::npos;
}

const char *printable(const MallocText &text)
{
    return text ? text.get() : "";
}

} // namespace

void EventBridge::replaceSubscriptions(const SubscriptionStore &newStore)
{
    newStore.saveToFile();
    if (producerHandler) {
        producerHandler->undeclareAllEvents();
    }
    for (const auto &[id, subscription] : subscriptions.items) {
        unsubscribe(id, subscription);
    }
    subscriptions = newStore;
    for (const auto &[id, subscription] : subscriptions.items) {
        declareEvent(subscription);
        subscribe(id, subscription);
    }
    updateTerminationTask();
}

void EventBridge::setPublicationConfig(const PublicationConfig &config)
{
    requireConsumer().setPublicationConfig(config);
    updateTerminationTask();
}

void EventBridge::refreshPublication()
{
    requireConsumer().refreshSubscriptions();
    updateTerminationTask();
}

const PublicationConfig &EventBridge::getPublicationConfig() const
{
    return requireConsumer().getPublicationConfig();
}

PublicationConfig &EventBridge::getPublicationConfig()
{
    return requireConsumer().getPublicationConfig();
}

void EventBridge::setupSubscriptions()
{
    for (const auto &[id, subscription] : subscriptions.items) {
        if (subscription.isStateData && producerHandler) {
            producerHandler->declareStatefulEvent(subscription.topicFilter,
                                                  subscription.useDeviceTopicPrefix);
        }
        subscribe(subscription.topicFilter, subscription);
    }
}

void EventBridge::publish(const std::string &topic, bool useDeviceTopicPrefix, const char *payload,
                          std::size_t payloadLength, int qos, bool retain)
{
    bool hasClient = false;
    int result = MQTTMSG_OK;
    MallocText errorText;
    {
        const std::lock_guard lock(mqttMutex);
        hasClient = mqttClient != nullptr;
        if (hasClient) {
            result = MQTTMsg_publish(mqttClient.get(), topic.c_str(), useDeviceTopicPrefix, payload,
                                     payloadLength, qos, retain, OutParameter(errorText));
        }
    }
    if (!hasClient) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sNo MQTT handler, cannot publish", LOG_PREFIX);
    } else if (result != MQTTMSG_OK) {
        tovrel_log(LOG_LEVEL_PROGRESS, "%sGot response code %d when publishing MQTT message: %s",
                   LOG_PREFIX, result, printable(errorText));
    }
}

const SubscriptionStore &EventBridge::getSubscriptions() const
{
    return subscriptions;
}

SubscriptionStore &EventBridge::getSubscriptions()
{
    return subscriptions;
}

void EventBridge::resetConfiguration()
{
    subscriptions = {};
    if (consumerHandler) {
        consumerHandler->getPublicationConfig() = {};
    }
}

std::string EventBridge::getDeviceTopicPrefix()
{
    return dbusHandler ? dbusHandler->getDeviceTopicPrefix() : std::string();
}

void EventBridge::loadSubscriptions()
{
    subscriptions.loadFromFile();
    subscriptions.migrateLegacyFile();
    for (const auto &[id, subscription] : subscriptions.items) {
        declareEvent(subscription);
    }
}

void EventBridge::dispatchMessage(const std::string &topic, bool devicePrefix, const char *payload)
{
    bool statelessMatched = false;
    bool statefulMatched = false;
    for (const auto &[id, subscription] : subscriptions.items) {
        if (MQTTMsg_topic_matches(subscription.topicFilter.c_str(), topic.c_str())) {
            (subscription.isStateData ? statefulMatched : statelessMatched) = true;
        }
    }
    if (!producerHandler) {
        return;
    }
    if (statelessMatched) {
        producerHandler->sendStatelessEvent(topic, devicePrefix, payload);
    }
    if (statefulMatched) {
        producerHandler->sendStatefulEvent(topic, devicePrefix, payload);
    }
}

BaseEventConsumerHandler &EventBridge::requireConsumer() const
{
    if (!consumerHandler) {
        throw EventBridgeException("No event consumption handler");
    }
    return *consumerHandler;
}

void EventBridge::declareEvent(const SubscriptionConfig &subscription)
{
    if (!producerHandler) {
        return;
    }
    if (subscription.isStateData) {
        producerHandler->declareStatefulEvent(subscription.topicFilter,
                                              subscription.useDeviceTopicPrefix);
    } else if (!hasWildcard(subscription.topicFilter)) {
        producerHandler->declareStatelessEvent(subscription.topicFilter,
                                               subscription.useDeviceTopicPrefix);
    }
}

void EventBridge::subscribe(const std::string &nameInLog, const SubscriptionConfig &subscription)
{
    int result = MQTTMSG_OK;
    MallocText errorText;
    {
        const std::lock_guard lock(mqttMutex);
        result =
            MQTTMsg_subscribe(mqttClient.get(), subscription.topicFilter.c_str(), subscription.qos,
                              subscription.useDeviceTopicPrefix, OutParameter(errorText));
    }
    if (result != MQTTMSG_OK) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to subscribe to topic '%s': %s", LOG_PREFIX,
                   nameInLog.c_str(), printable(errorText));
    }
}

void EventBridge::unsubscribe(const std::string &nameInLog, const SubscriptionConfig &subscription)
{
    int result = MQTTMSG_OK;
    MallocText errorText;
    {
        const std::lock_guard lock(mqttMutex);
        result = MQTTMsg_unsubscribe(mqttClient.get(), subscription.topicFilter.c_str(),
                                     subscription.useDeviceTopicPrefix, OutParameter(errorText));
    }
    if (result != MQTTMSG_OK && result != MQTTMSG_NOT_SUBSCRIBED) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to unsubscribe from topic '%s': %s", LOG_PREFIX,
                   nameInLog.c_str(), printable(errorText));
    }
}

} // namespace tovrel
