/** The functions of norq/event_consumer.h. */
#include "event/client/api.h"
#include "event/client/consumer.h"
#include "event/core/declaration.h"

#include <norq/event_consumer.h>

#include <cstring>
#include <memory>
#include <utility>

using namespace norq::event;

/**
 * A consumer behind its C type. Not derived from it: its thread must never see an object that is
 * only partly there.
 */
struct event_consumer {
    template <typename... Arguments>
    explicit event_consumer(Arguments &&...arguments)
        : content(std::forward<Arguments>(arguments)...)
    {
    }

    Consumer content;
};

/** An expression that is being built. */
struct subscribe_expression {
    Expression content;
};

subscribe_expression_t *subscribe_expression_new(void)
{
    return withBarrier<subscribe_expression_t *>("Making an expression", nullptr,
                                                 [] { return new subscribe_expression; });
}

void subscribe_expression_free(subscribe_expression_t *expression)
{
    delete expression;
}

int subscribe_expression_add_key_value(subscribe_expression_t *expression, const char *key,
                                       const char *value)
{
    g_return_val_if_fail(expression != nullptr && key != nullptr && value != nullptr, 0);
    return reported(nullptr, [&] { return expression->content.addKeyValue(key, value); });
}

int subscribe_expression_set_name_space(subscribe_expression_t *expression, const char *key,
                                        const char *name_space)
{
    g_return_val_if_fail(expression != nullptr && key != nullptr && name_space != nullptr, 0);
    return reported(nullptr, [&] { return expression->content.setNameSpace(key, name_space); });
}

int subscribe_expression_add_not_key(subscribe_expression_t *expression, const char *key)
{
    g_return_val_if_fail(expression != nullptr && key != nullptr, 0);
    return reported(nullptr, [&] { return expression->content.addAbsent(key); });
}

char *subscribe_expression_serialize_xml(const subscribe_expression_t *expression)
{
    g_return_val_if_fail(expression != nullptr, nullptr);
    return withBarrier<char *>("Rendering an expression", nullptr,
                               [&] { return strdup(expression->content.xml().c_str()); });
}

event_consumer_t *event_consumer_new(const char *name)
{
    g_return_val_if_fail(name != nullptr, nullptr);
    return withBarrier<event_consumer_t *>(
        "Creating an event consumer", nullptr, [&]() -> event_consumer_t * {
            const Status valid = checkName(name, "client name");
            if (!valid || *name == '\0') {
                norq_event_log(LOG_ERROR_LEVEL, "Creating an event consumer failed: %s",
                               valid ? "the client name is empty" : valid.text().c_str());
                return nullptr;
            }
            return std::make_unique<event_consumer>(name).release();
        });
}

void event_consumer_free(event_consumer_t *consumer)
{
    delete consumer;
}

int event_consumer_subscribe(event_consumer_t *consumer, const subscribe_expression_t *expression,
                             event_callback_t callback, void *user_data)
{
    g_return_val_if_fail(consumer != nullptr && expression != nullptr && callback != nullptr, -1);
    return withBarrier("Subscribing to events", -1, [&] {
        int id = -1;
        const Status subscribed =
            consumer->content.subscribe(expression->content, callback, user_data, id);
        if (!subscribed) {
            norq_event_log(LOG_ERROR_LEVEL, "Subscribing to events failed: %s",
                           subscribed.text().c_str());
            return -1;
        }
        return id;
    });
}

int event_consumer_unsubscribe(event_consumer_t *consumer, int subscription_id, unsigned int flags)
{
    g_return_val_if_fail(consumer != nullptr && flags == 0, 0);
    return withBarrier("Unsubscribing", 0,
                       [&] { return consumer->content.unsubscribe(subscription_id) ? 1 : 0; });
}
