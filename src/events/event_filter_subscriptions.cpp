/** Event filters as subscriptions of the event service. Runs on the status worker only. */
#include "events/event_consumer_handler.h"
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
    const auto copy = config.copyGuarded();
    for (const auto &[id, filter] : copy.getEventFilters()) {
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
    auto &entry = subscriptionSlots.at(static_cast<std::size_t>(slot));
    entry = slot;
    // The record is there before the subscription is: a kept property value may be delivered
    // before the call returns.
    auto &registry = SubscriptionRegistry::instance();
    const bool added = registry.insert(slot, {this, -1, filter.getQos(), filter.getRetainPolicy()});
    const MallocText description(subscribe_expression_serialize_xml(expression.get()));
    const auto subscriptionId =
        event_consumer_subscribe(consumer.get(), expression.get(), deliveryCallback, &entry);
    if (added) {
        registry.setSubscriptionId(slot, subscriptionId);
    }
}

std::int32_t EventConsumerHandler::findFreeSlot()
{
    const auto free = std::find(subscriptionSlots.begin(), subscriptionSlots.end(), -1);
    if (free == subscriptionSlots.end()) {
        tovrel_log(LOG_LEVEL_WARN, "%sToo many subscriptions, ignoring", LOG_PREFIX);
        return -1;
    }
    return static_cast<std::int32_t>(std::distance(subscriptionSlots.begin(), free));
}

void EventConsumerHandler::unsubscribeEventFilters()
{
    auto &registry = SubscriptionRegistry::instance();
    for (const auto &[slot, record] : registry.records()) {
        if (event_consumer_unsubscribe(consumer.get(), record.subscriptionId, 0) == 0) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to unsubscribe to subscription id: %d",
                       LOG_PREFIX, record.subscriptionId);
        }
        const auto index = static_cast<std::size_t>(slot);
        g_assert(index < subscriptionSlots.size());
        subscriptionSlots[index] = -1;
    }
    registry.clear();
    discardQueuedEvents();
}

void EventConsumerHandler::discardQueuedEvents()
{
    std::queue<std::shared_ptr<EventContainer>> discarded; // destroyed after the lock is released
    const std::lock_guard lock(eventMutex);
    discarded.swap(eventQueue);
}

} // namespace tovrel
