/**
 * Consuming events: subscribe with an expression, receive matching events through a callback.
 *
 * A consumer may be used from any thread. Its callbacks run on one thread of the library, one
 * after the other, never on the thread of a main loop: a blocked main loop delays no event, and a
 * callback that blocks delays only this consumer. What the service holds for a consumer that does
 * not keep up is bounded; beyond the bound the oldest events are dropped, which the service logs
 * once for each run of drops. A callback must not throw.
 *
 * The event service may be away; subscribing then succeeds and takes effect when the service is
 * there. When the service comes back after a loss, the library subscribes everything again by
 * itself and logs both. The kept property values are then given again, as to a new subscription.
 */
#ifndef NORQ_EVENT_CONSUMER_H
#define NORQ_EVENT_CONSUMER_H

#include <norq/event.h>

G_BEGIN_DECLS

/** Conditions that an event must meet, all of them. Empty: every event. Not thread-safe. */
typedef struct subscribe_expression subscribe_expression_t;

/** New empty expression. */
subscribe_expression_t *subscribe_expression_new(void);

/** Frees an expression; it may be freed as soon as it was subscribed. NULL is accepted. */
void subscribe_expression_free(subscribe_expression_t *expression);

/**
 * Condition: the event has this key and its value, as event_get_value() gives it, equals `value`.
 * A key stands in one condition of this kind at most: adding it again fails.
 */
int subscribe_expression_add_key_value(subscribe_expression_t *expression, const char *key,
                                       const char *value);

/**
 * Condition: the event has this key, in this namespace. An empty namespace is the same as no
 * namespace of the event's key. Given again for a key, it replaces the former one.
 */
int subscribe_expression_set_name_space(subscribe_expression_t *expression, const char *key,
                                        const char *name_space);

/** Condition: the event does not have this key. */
int subscribe_expression_add_not_key(subscribe_expression_t *expression, const char *key);

/**
 * The expression as an XML text for people and logs, released by the caller with free(); NULL
 * when memory is exhausted. The order of conditions is that of their addition.
 */
char *subscribe_expression_serialize_xml(const subscribe_expression_t *expression);

/**
 * Receives one event. The callback owns the event and releases it with event_free().
 * Runs on the consumer's thread.
 */
typedef void (*event_callback_t)(event_t *event, void *user_data);

/** A consumer: one connection to the event service with a thread of its own. */
typedef struct event_consumer event_consumer_t;

/**
 * New consumer under a name that the service and its tools show; NULL as event_producer_new().
 * Waits for the service, 2 seconds at most.
 */
event_consumer_t *event_consumer_new(const char *name);

/**
 * Ends all subscriptions, closes the connection and ends the thread. When it returns, no callback
 * runs and none will. Must not be called from a callback. NULL is accepted.
 */
void event_consumer_free(event_consumer_t *consumer);

/**
 * Subscribes. The expression is copied. An event that matches several subscriptions of a consumer
 * is given once to each of them. A new subscription gets the kept last value of every matching
 * property first.
 *
 * Callable from any thread, also from a callback. The callback may run before this returns. Waits
 * at most 2 seconds for the service's answer, which cannot come while a callback of this consumer
 * blocks; the subscription then takes effect later.
 *
 * @return the subscription id (0 or greater), never used again while the consumer lives, or a
 *         negative value, with a log line at the error level, when there are EVENT_MAX_IDS
 *         already or the service refuses it
 */
int event_consumer_subscribe(event_consumer_t *consumer, const subscribe_expression_t *expression,
                             event_callback_t callback, void *user_data);

/**
 * Ends a subscription. When it returns, the callback does not run for this subscription and will
 * not; so it waits for a callback of this subscription that is under way, unless called from that
 * callback itself. The caller must hold no lock that the callback takes.
 *
 * @param flags must be 0
 * @return non-zero on success, 0 for an unknown id
 */
int event_consumer_unsubscribe(event_consumer_t *consumer, int subscription_id, unsigned int flags);

G_END_DECLS

#endif
