#include "events/event_consumer_handler.h"

#include "events/event_translation.h"
#include "events/living_handlers.h"
#include "events/subscription_registry.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/log.h"

#include <exception>
#include <utility>

namespace tovrel {

constinit std::array<EventConsumerHandler::SubscriptionSlot,
                     EventConsumerHandler::MAX_SUBSCRIPTIONS>
    EventConsumerHandler::subscriptionSlots;

EventConsumerHandler::EventConsumerHandler(BaseEventBridge *publishTo) : bridge(publishTo)
{
    for (auto &slot : subscriptionSlots) {
        slot.index = -1;
    }
    SubscriptionRegistry::instance().clear();
    consumer.reset(event_consumer_new("Tovrel"));
    if (!consumer) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to create event consumer", LOG_PREFIX);
    }
    config.load(true);
    config.load(false);
    config.attachGuard(configMutex);
    LivingHandlers::instance().add(this);
}

EventConsumerHandler::~EventConsumerHandler()
{
    try {
        stopWorkers();
    } catch (const std::exception &error) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sException when terminating event consumption: %s",
                   LOG_PREFIX, error.what());
    }
    consumer.reset();
    // From here on a callback finds neither this object nor a record that leads to it.
    LivingHandlers::instance().remove(this);
    SubscriptionRegistry::instance().clear();
}

void EventConsumerHandler::stopWorkers()
{
    ending = true;
    {
        const std::lock_guard lock(eventMutex);
        running = false;
    }
    eventCondition.notify_all();
    if (publishThread.joinable()) {
        publishThread.join();
    }
    {
        // The status worker may stand between its check of running and its wait: taking its lock
        // once lets it reach the wait before it is woken.
        const std::lock_guard lock(statusMutex);
    }
    statusCondition.notify_all();
    if (statusThread.joinable()) {
        statusThread.join();
    }
}

void EventConsumerHandler::start(const std::string &deviceSerialNumber)
{
    serialNumber = deviceSerialNumber;
    running = true;
    statusThread = std::thread(&EventConsumerHandler::statusWorker, this);
    publishThread = std::thread(&EventConsumerHandler::publishWorker, this);
    subscribeStatus();
}

void EventConsumerHandler::setPublicationConfig(const PublicationConfig &newConfig)
{
    config = newConfig;
    config.save();
    refreshSubscriptions();
}

void EventConsumerHandler::refreshSubscriptions()
{
    const std::lock_guard lock(statusMutex);
    if (!active) {
        return;
    }
    statusQueue.push(false);
    statusQueue.push(true);
    statusCondition.notify_all();
}

void EventConsumerHandler::setMessagingStatus(bool nowActive, bool nowConnected)
{
    {
        const std::lock_guard lock(eventMutex);
        connected = nowConnected;
    }
    eventCondition.notify_all();
    const std::lock_guard lock(statusMutex);
    if (nowActive != active) {
        statusQueue.push(nowActive);
        statusCondition.notify_all();
    }
}

void EventConsumerHandler::enqueueEvent(const std::shared_ptr<EventContainer> &container,
                                        const event_t *event)
{
    extractEvent(*container, event,
                 config.includesSerialNumberGuarded() ? serialNumber.c_str() : nullptr);
    bool firstDrop = false;
    bool workerMayWait = false;
    std::shared_ptr<EventContainer> dropped; // destroyed after the lock is released
    {
        const std::lock_guard lock(eventMutex);
        const bool full = eventQueue.size() >= MAX_QUEUED_EVENTS;
        if (full) {
            dropped = std::move(eventQueue.front());
            eventQueue.pop();
        }
        firstDrop = full && !overflowLogged;
        overflowLogged = full;
        // While disconnected it waits on, and with events in the queue it is at work already.
        workerMayWait = connected && eventQueue.empty();
        eventQueue.push(container);
    }
    if (workerMayWait) {
        eventCondition.notify_all();
    }
    if (firstDrop) {
        tovrel_log(LOG_LEVEL_PROGRESS, "%sToo many queued events, dropping the oldest one",
                   LOG_PREFIX);
    }
}

PublicationConfig &EventConsumerHandler::getPublicationConfig()
{
    return config;
}

std::size_t EventConsumerHandler::eventFilterCount()
{
    return config.getEventFilters().size();
}

void EventConsumerHandler::statusWorker()
{
    while (running) {
        bool request = false;
        {
            std::unique_lock lock(statusMutex);
            statusCondition.wait(lock, [this] { return !running || !statusQueue.empty(); });
            if (!running) {
                return;
            }
            request = statusQueue.front();
            statusQueue.pop();
        }
        if (request == active) {
            continue;
        }
        // The flag changes before the slow work, so that a request that arrives meanwhile is
        // judged against the state that is on its way.
        active = request;
        logAndCarryOn("status worker", [this, request] { applyRequest(request); });
    }
}

void EventConsumerHandler::applyRequest(bool subscribe)
{
    // Whatever keeps it from coming to its end: nothing is subscribed on top of what is left.
    if (!subscribe || unsubscribingIsDue) {
        unsubscribingIsDue = true;
        unsubscribeEventFilters();
        unsubscribingIsDue = false;
    }
    if (subscribe) {
        subscribeEventFilters();
    }
}

void EventConsumerHandler::publishWorker()
{
    while (running) {
        std::shared_ptr<EventContainer> container;
        {
            std::unique_lock lock(eventMutex);
            eventCondition.wait(lock,
                                [this] { return !running || (connected && !eventQueue.empty()); });
            if (!running) {
                return;
            }
            container = std::move(eventQueue.front());
            eventQueue.pop();
        }
        logAndCarryOn("publish worker", [this, &container] { publishEvent(*container); });
    }
}

void EventConsumerHandler::publishEvent(const EventContainer &container)
{
    const auto message = mqttTopicFor(container, config.copySettingsGuarded());
    if (bridge == nullptr) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sNo event_bridge, cannot publish", LOG_PREFIX);
        return;
    }
    bridge->publish(message.topic, message.useDeviceTopicPrefix, container.payload.c_str(),
                    container.payload.size(), container.qos, isRetained(container));
}

} // namespace tovrel
