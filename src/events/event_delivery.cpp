/** What the event service calls: the MQTT client's status, and the events of the filters. */
#include "events/event_consumer_handler.h"
#include "events/living_handlers.h"
#include "events/subscription_registry.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/log.h"

#include <array>
#include <string_view>

namespace tovrel {

namespace {

using Event = CHandle<event_t, event_free>;

void logInvalidStatus()
{
    tovrel_log(LOG_LEVEL_WARN, "%sInvalid mqtt-messaging status", LOG_PREFIX);
}

/** A text that is neither true nor false is logged and counts as false. */
bool parseStatus(std::string_view text)
{
    if (text == "true" || text == "1") {
        return true;
    }
    if (text != "false" && text != "0") {
        logInvalidStatus();
    }
    return false;
}

void applyStatus(const event_t *event, EventConsumerHandler &handler)
{
    const char *activeText = event_get_value(event, "active");
    const char *connectedText = event_get_value(event, "connected");
    if (activeText == nullptr || connectedText == nullptr) {
        logInvalidStatus();
        return;
    }
    const bool active = parseStatus(activeText);
    const bool connected = parseStatus(connectedText);
    handler.setMessagingStatus(active, connected);
}

void deliver(const event_t *event, const SubscriptionHandle &subscription)
{
    if (subscription.handler == nullptr) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sNo event handler, can't translate", LOG_PREFIX);
        return;
    }
    const auto container = std::make_shared<EventContainer>();
    container->retainPolicy = subscription.retainPolicy;
    container->qos = subscription.qos;
    subscription.handler->enqueueEvent(container, event);
}

} // namespace

void EventConsumerHandler::statusCallback(event_t *event, void *userData)
{
    const Event owned(event);
    logAndCarryOn("status callback", [&owned, userData] {
        if (userData == nullptr) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sCannot change event consumer status", LOG_PREFIX);
            return;
        }
        // Not even the library's promise that no callback runs after its end is relied upon.
        LivingHandlers::instance().ifLiving(userData, [&owned, userData] {
            applyStatus(owned.get(), *static_cast<EventConsumerHandler *>(userData));
        });
    });
}

void EventConsumerHandler::deliveryCallback(event_t *event, void *userData)
{
    const Event owned(event);
    logAndCarryOn("delivery callback", [&owned, userData] {
        if (event_is_internal(owned.get()) != 0) {
            return;
        }
        // Slots outlive every handler, and a free one has no record.
        const auto &slot = *static_cast<const std::atomic<std::int32_t> *>(userData);
        SubscriptionRegistry::instance().withRecord(
            slot, [&owned](const SubscriptionHandle &record) { deliver(owned.get(), record); });
    });
}

void EventConsumerHandler::subscribeStatus()
{
    if (!consumer) {
        return;
    }
    constexpr std::array<std::pair<const char *, const char *>, 3> STATUS_TOPIC{
        {{"topic0", "Device"}, {"topic1", "MQTT"}, {"topic2", "ClientStatus"}}};
    const Expression expression(subscribe_expression_new());
    for (std::size_t index = 0; index < STATUS_TOPIC.size(); ++index) {
        const auto &[key, value] = STATUS_TOPIC.at(index);
        if (subscribe_expression_add_key_value(expression.get(), key, value) == 0) {
            tovrel_log(LOG_LEVEL_FAILURE,
                       "%sFailed to add key value %zu to subscription expression", LOG_PREFIX,
                       index);
            return;
        }
    }
    statusSubscriptionId =
        event_consumer_subscribe(consumer.get(), expression.get(), statusCallback, this);
}

} // namespace tovrel
