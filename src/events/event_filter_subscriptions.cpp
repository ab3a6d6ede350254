/** Event filters as subscriptions of the event service. Runs on the status worker only. */
#include "events/event_consumer_handler.h"
#include "events/subscription_registry.h"
#include "interfaces/log.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace tovrel {

namespace {

std::string replaceAll(std::string text, std::string_view from, std::string_view to)
{
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/**
 * From the short names of filters to the event service's. Filters are expected with the short
 * names, or with "tns1"; a "tnsnorq" written out is extended once more.
 */
std::string fullNamespace(const std::string &name)
{
    return replaceAll(replaceAll(name, "norq", "tnsnorq"), "onvif", "tns1");
}

bool addSegment(subscribe_expression_t *expression, const std::string &key,
                const std::string &nameSpace, const std::string &name)
{
    if (subscribe_expression_add_key_value(expression, key.c_str(), name.c_str()) == 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to add key value to subscription expression",
                   LOG_PREFIX);
        return false;
    }
    if (subscribe_expression_set_name_space(expression, key.c_str(),
                                            fullNamespace(nameSpace).c_str()) == 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to add namespace to subscription expression",
                   LOG_PREFIX);
        return false;
    }
    return true;
}

std::string topicKey(std::size_t level)
{
    return "topic" + std::to_string(level);
}

/** Turns a filter into conditions; false, logged, when the event service refuses one. */
bool fillExpression(subscribe_expression_t *expression, const EventFilterConfig &filter)
{
    const auto &segments = filter.getTopicSegments();
    for (std::size_t level = 0; level < segments.size(); ++level) {
        const auto &[nameSpace, name] = segments.at(level);
        if (!addSegment(expression, topicKey(level), nameSpace, name)) {
            return false;
        }
    }
    if (!filter.getMatchSubtopics()) {
        subscribe_expression_add_not_key(expression, topicKey(segments.size()).c_str());
    }
    return true;
}

} // namespace

void EventConsumerHandler::subscribeEventFilters()
{
    if (!consumer) {
        return;
    }
    const auto copy = config.copyGuarded();
    for (const auto &[id, filter] : copy.getEventFilters()) {
        if (ending) { // subscribing may take seconds, and the consumer is about to be freed
            return;
        }
        subscribeEventFilter(filter);
    }
}

void EventConsumerHandler::subscribeEventFilter(const EventFilterConfig &filter)
{
    const Expression expression(subscribe_expression_new());
    if (!fillExpression(expression.get(), filter)) {
        return;
    }
    const auto slot = findFreeSlot();
    if (slot < 0) {
        return;
    }
    // The record is there before the subscription is: a kept property value may be delivered
    // before the call returns. And it is there before the slot is taken: what fails in between
    // leaves no slot that is never freed.
    auto &registry = SubscriptionRegistry::instance();
    const bool added = registry.insert(slot, {this, -1, filter.getQos(), filter.getRetainPolicy()});
    auto &entry = subscriptionSlots.at(static_cast<std::size_t>(slot));
    entry.index = slot;
    const MallocText description(subscribe_expression_serialize_xml(expression.get()));
    const auto subscriptionId =
        event_consumer_subscribe(consumer.get(), expression.get(), deliveryCallback, &entry.index);
    if (!added) {
        return;
    }
    try {
        registry.setSubscriptionId(slot, subscriptionId);
    } catch (...) {
        // Without its id nobody could end it later.
        event_consumer_unsubscribe(consumer.get(), subscriptionId, 0);
        throw;
    }
}

std::int32_t EventConsumerHandler::findFreeSlot()
{
    const auto *const free = std::find_if(subscriptionSlots.begin(), subscriptionSlots.end(),
                                          [](const auto &slot) { return slot.index == -1; });
    if (free == subscriptionSlots.end()) {
        tovrel_log(LOG_LEVEL_WARN, "%sToo many subscriptions, ignoring", LOG_PREFIX);
        return -1;
    }
    return static_cast<std::int32_t>(std::distance(subscriptionSlots.cbegin(), free));
}

void EventConsumerHandler::unsubscribeEventFilters()
{
    auto &registry = SubscriptionRegistry::instance();
    for (const auto &[slot, record] : registry.records()) {
        if (ending) { // freeing the consumer ends all that is left at once
            return;
        }
        endSubscription(slot, record);
    }
    registry.clear();
    discardQueuedEvents();
}

void EventConsumerHandler::endSubscription(std::int32_t slot, const SubscriptionHandle &record)
{
    if (consumer && event_consumer_unsubscribe(consumer.get(), record.subscriptionId, 0) == 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to unsubscribe to subscription id: %d", LOG_PREFIX,
                   record.subscriptionId);
    }
    const auto index = static_cast<std::size_t>(slot);
    g_assert(index < subscriptionSlots.size());
    subscriptionSlots[index].index = -1;
    SubscriptionRegistry::instance().remove(slot);
}

void EventConsumerHandler::discardQueuedEvents()
{
    std::queue<std::shared_ptr<EventContainer>> discarded; // destroyed after the lock is released
    const std::lock_guard lock(eventMutex);
    discarded.swap(eventQueue);
}

} // namespace tovrel
