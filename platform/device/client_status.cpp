#include "device/client_status.h"

#include "device/status_topic.h"
#include "event/core/barrier.h"

#include <cstring>
#include <stdexcept>

namespace norq::device {

namespace {

using Event = std::unique_ptr<event_t, decltype(&event_free)>;
using Expression = std::unique_ptr<subscribe_expression_t, decltype(&subscribe_expression_free)>;

Expression statusExpression()
{
    Expression expression(subscribe_expression_new(), subscribe_expression_free);
    for (const TopicLevel &level : STATUS_TOPIC) {
        if (!expression ||
            !subscribe_expression_add_key_value(expression.get(), level.key, level.value)) {
            throw std::runtime_error("the MQTT client's status cannot be asked for");
        }
    }
    return expression;
}

std::optional<bool> booleanOf(const event_t *event, const char *key)
{
    const char *value = event_get_value(event, key);
    if (value == nullptr) {
        return std::nullopt;
    }
    return std::strcmp(value, "1") == 0;
}

} // namespace

ClientStatusWatch::ClientStatusWatch()
    : consumer(event_consumer_new("norq-deviced"), event_consumer_free)
{
    const Expression expression = statusExpression();
    if (!consumer ||
        event_consumer_subscribe(consumer.get(), expression.get(), onEvent, this) < 0) {
        throw std::runtime_error("the MQTT client's status cannot be subscribed");
    }
}

std::optional<NumberedStatus> ClientStatusWatch::last() const
{
    const std::lock_guard lock(mutex);
    return kept;
}

void ClientStatusWatch::forget(std::uint64_t number)
{
    const std::lock_guard lock(mutex);
    if (kept && kept->number == number) {
        kept.reset();
    }
}

void ClientStatusWatch::onEvent(event_t *event, void *self)
{
    const Event owner(event, event_free);
    event::withBarrier("Taking the MQTT client's status", 0, [&] {
        const auto active = booleanOf(event, "active");
        const auto connected = booleanOf(event, "connected");
        if (active && connected) {
            static_cast<ClientStatusWatch *>(self)->keep({*active, *connected});
        }
        return 0;
    });
}

void ClientStatusWatch::keep(ClientStatus status)
{
    const std::lock_guard lock(mutex);
    kept = NumberedStatus{status, ++announcements};
}

} // namespace norq::device
