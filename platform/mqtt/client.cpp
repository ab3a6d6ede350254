#include "mqtt/client.h"

#include <algorithm>
#include <utility>

namespace norq::mqtt {
namespace {

Verdict checkQos(int qos)
{
    if (qos < 0 || qos > 2) {
        return refuse(MQTTMSG_INVALID_ARGUMENT,
                      "The QoS is " + std::to_string(qos) + ", it must be 0, 1 or 2");
    }
    return {};
}

} // namespace

Client::Client(MQTTMsg_message_callback callback, void *userData) : receiver{callback, userData} {}

Client::~Client()
{
    if (parts.inbound) {
        parts.inbound->close();
    }
    if (connection) {
        connection->stop();
    }
    if (parts.status) {
        parts.status->stop();
    }
}

Verdict Client::init(int flags)
{
    if (flags != 0) {
        return refuse(MQTTMSG_INVALID_ARGUMENT, "The flags must be 0");
    }
    const std::lock_guard guard(initMutex);
    if (state != State::NEW) {
        return refuse(MQTTMSG_FAILED, "The client is initialised already");
    }
    const MqttSettings settings = loadMqttSettings();
    prefix = settings.deviceTopicPrefix;
    auto status = std::make_shared<StatusAnnouncer>();
    status->announce({.active = settings.active, .connected = false});
    parts.status = std::move(status);
    if (!settings.active) {
        state = State::INACTIVE;
        return {};
    }
    start(settings);
    state = State::RUNNING;
    return {};
}

void Client::start(const MqttSettings &settings)
{
    clientId.take(settings.clientId.empty() ? deriveClientId() : settings.clientId);
    parts.settings = settings;
    parts.clientId = clientId.value();
    parts.wake = std::make_shared<WakeFd>();
    parts.outbound = std::make_shared<OutboundQueue>(settings.queueMessages, settings.queueBytes);
    parts.subscriptions = std::make_shared<SubscriptionTable>();
    parts.inbound = std::make_shared<InboundQueue>(
        InboundQueue::Limits{settings.inboundMessages, settings.inboundBytes}, receiver,
        parts.subscriptions, prefix, parts.wake);
    auto created = std::make_shared<Connection>(parts);
    created->start();
    connection = std::move(created);
    parts.inbound->attach();
}

Verdict Client::checkRunning() const
{
    switch (state) {
    case State::NEW:
        return refuse(MQTTMSG_NOT_INITIALISED, "The client is not initialised");
    case State::INACTIVE:
        return refuse(MQTTMSG_INACTIVE, "MQTT is switched off in the settings");
    case State::RUNNING:
        break;
    }
    return {};
}

Verdict Client::publish(std::string_view topic, bool usePrefix, std::string_view payload, int qos,
                        bool retain)
{
    Verdict verdict = checkRunning();
    if (!verdict.ok()) {
        return verdict;
    }
    if (verdict = checkQos(qos); !verdict.ok()) {
        return verdict;
    }
    std::string completed = withPrefix(prefix, topic, usePrefix);
    if (verdict = checkTopic(topic, completed); !verdict.ok()) {
        return verdict;
    }
    if (verdict = checkPayloadSize(completed.size(), payload.size(), qos); !verdict.ok()) {
        return verdict;
    }
    // Before the payload is copied: a caller that floods a full queue is to cost little.
    if (verdict = parts.outbound->checkRoom(completed.size() + payload.size()); !verdict.ok()) {
        return verdict;
    }
    verdict = parts.outbound->push({std::move(completed), std::string(payload),
                                    std::min(qos, parts.settings.maximumQos), retain});
    if (verdict.ok()) {
        parts.wake->signal();
    }
    return verdict;
}

Verdict Client::subscribe(std::string_view filter, int qos, bool usePrefix)
{
    Verdict verdict = checkRunning();
    if (!verdict.ok()) {
        return verdict;
    }
    if (verdict = checkQos(qos); !verdict.ok()) {
        return verdict;
    }
    const std::string completed = withPrefix(prefix, filter, usePrefix);
    if (verdict = checkFilter(filter, completed); !verdict.ok()) {
        return verdict;
    }
    if (!parts.subscriptions->add(completed, usePrefix, qos)) {
        return refuse(MQTTMSG_FAILED, "There are " +
                                          std::to_string(SubscriptionTable::MAX_SUBSCRIPTIONS) +
                                          " subscriptions already");
    }
    parts.wake->signal();
    return {};
}

Verdict Client::unsubscribe(std::string_view filter, bool usePrefix)
{
    Verdict verdict = checkRunning();
    if (!verdict.ok()) {
        return verdict;
    }
    const std::string completed = withPrefix(prefix, filter, usePrefix);
    if (verdict = checkFilter(filter, completed); !verdict.ok()) {
        return verdict;
    }
    if (!parts.subscriptions->remove(completed, usePrefix)) {
        return refuse(MQTTMSG_NOT_SUBSCRIBED, "The topic filter is not subscribed");
    }
    parts.wake->signal();
    return {};
}

} // namespace norq::mqtt
