#include "mqtt/event_producer_handler.h"

#include "interfaces/log.h"

#include <algorithm>
#include <utility>

namespace tovrel {

namespace {

constexpr gssize MAX_TOPIC_BYTES = 4096;
constexpr glong MAX_TOPIC_CHARACTERS = 1024;

using EventHandle = CHandle<event_t, event_free>;

/** The topic's beginning that fits into an event; null when the topic is not UTF-8. */
GText cutTopic(const std::string &topic)
{
    // Counting the characters of invalid text could run past its end.
    if (!g_utf8_validate(topic.c_str(), -1, nullptr)) {
        return nullptr;
    }
    const glong characters = g_utf8_strlen(topic.c_str(), MAX_TOPIC_BYTES);
    return GText(g_utf8_substring(topic.c_str(), 0, std::min(characters, MAX_TOPIC_CHARACTERS)));
}

} // namespace

EventProducerHandler::EventProducerHandler()
    : producer(event_producer_new("tovrel", &statefulDeclarations, -1, 0))
{
}

void EventProducerHandler::start()
{
    genericStatelessDeclaration = declare(makeGenericStatelessDeclaration());
    if (genericStatelessDeclaration < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sError declaring stateless event", LOG_PREFIX);
    }
}

void EventProducerHandler::declareStatelessEvent(const std::string &topicFilter,
                                                 bool useDeviceTopicPrefix)
{
    const int id = declare(makeStatelessDeclaration(topicFilter, useDeviceTopicPrefix));
    if (id < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sError declaring stateless event", LOG_PREFIX);
        return;
    }
    statelessDeclarations.push_back(id);
}

void EventProducerHandler::declareStatefulEvent(const std::string &topicFilter,
                                                bool useDeviceTopicPrefix)
{
    if (statefulDeclarations.contains(topicFilter)) {
        return;
    }
    const int id = declare(makeStatefulDeclaration(topicFilter, useDeviceTopicPrefix));
    if (id < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sError declaring stateful event", LOG_PREFIX);
        return;
    }
    statefulDeclarations.emplace(topicFilter, id);
}

void EventProducerHandler::sendStatelessEvent(const std::string &topic, bool devicePrefix,
                                              const char *payload)
{
    send(genericStatelessDeclaration, "stateless", topic, devicePrefix, payload);
}

void EventProducerHandler::sendStatefulEvent(const std::string &topic, bool devicePrefix,
                                             const char *payload)
{
    // Stateful events are declared for filters without wildcards, so the filter is the topic.
    const auto found = statefulDeclarations.find(topic);
    if (found != statefulDeclarations.end()) {
        send(found->second, "stateful", topic, devicePrefix, payload);
    }
}

void EventProducerHandler::undeclareAllEvents()
{
    std::vector<int> ids;
    for (const auto &[topicFilter, id] : statefulDeclarations) {
        ids.push_back(id);
    }
    ids.insert(ids.end(), statelessDeclarations.begin(), statelessDeclarations.end());
    statefulDeclarations.clear();
    statelessDeclarations.clear();
    for (const int id : ids) {
        if (!event_producer_undeclare(producer.get(), id)) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to undeclare event with id: %d", LOG_PREFIX,
                       id);
        }
    }
}

int EventProducerHandler::declare(const DeclarationHandle &declaration)
{
    if (!producer || !declaration) {
        return -1;
    }
    return event_producer_declare(producer.get(), declaration.get());
}

void EventProducerHandler::send(int declarationId, const char *kind, const std::string &topic,
                                bool devicePrefix, const char *payload)
{
    const EventHandle event(
        producer ? event_producer_prepare_event(producer.get(), declarationId, 0, nullptr)
                 : nullptr);
    const GText shortTopic = cutTopic(topic);
    // The texts for topic, payload and sending say "stateless" for both kinds; operators search
    // their logs for them.
    if (!event || !shortTopic ||
        !event_set_value(event.get(), KEY_MQTT_TOPIC, event_value_string(shortTopic.get()),
                         nullptr)) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not set mqtt-topic for stateless event", LOG_PREFIX);
        return;
    }
    if (!event_set_value(event.get(), KEY_MQTT_PAYLOAD, event_value_string(payload), nullptr)) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not set mqtt-payload for stateless event",
                   LOG_PREFIX);
        return;
    }
    if (!event_set_value(event.get(), KEY_DEVICE_PREFIX, event_value_boolean(devicePrefix),
                         nullptr)) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not set device-prefix for %s event", LOG_PREFIX,
                   kind);
        return;
    }
    ErrorHandle error;
    if (!event_producer_send_event(producer.get(), event.get(), OutParameter(error))) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not send stateless MQTT event: %s", LOG_PREFIX,
                   error ? error->message : "");
    }
}

} // namespace tovrel
