/**
 * Producing events: declare what will be sent, then prepare, set and send events.
 *
 * A producer may be used from any thread; its calls are serialised inside. Events of one producer
 * reach every consumer in the order in which event_producer_send_event() returned.
 *
 * The event service may be away. Declaring then succeeds all the same and takes effect when the
 * service is there; sending fails with EVENT_ERROR_UNAVAILABLE. When the service comes back, the
 * library declares everything again by itself, under the same ids, hands over the last value of
 * each property once more, and logs both the loss (warning) and the return (info).
 */
#ifndef NORQ_EVENT_PRODUCER_H
#define NORQ_EVENT_PRODUCER_H

#include <norq/event.h>

G_BEGIN_DECLS

/** A description of events to come, built key by key. Not thread-safe. */
typedef struct event_declaration event_declaration_t;

/** Flags of event_declaration_new(). */
typedef enum event_declaration_flags {
    EVENT_DECLARATION_DEFAULT = 0,
    /** Meant for the device itself: event_is_internal() is true for these events. */
    EVENT_DECLARATION_INTERNAL = 1
} event_declaration_flags;

/** New empty declaration; `flags` of event_declaration_flags. NULL on unknown flags, with error. */
event_declaration_t *event_declaration_new(unsigned int flags, GError **error);

/** Frees a declaration; it may be freed as soon as it was declared. NULL is accepted. */
void event_declaration_free(event_declaration_t *declaration);

/**
 * Adds a key whose value is fixed; events carry it without setting it.
 * Fails for a key that is there already or that exceeds a limit, and for bad UTF-8.
 */
int event_declaration_add_key_value(event_declaration_t *declaration, const char *key,
                                    event_value_t value, GError **error);

/** Adds an open key: each event must set a value of this type before it is sent. */
int event_declaration_add_key(event_declaration_t *declaration, const char *key,
                              event_value_type type, GError **error);

/** Sets the namespace of a key that was added before; NULL or an empty text takes it away. */
int event_declaration_set_name_space(event_declaration_t *declaration, const char *key,
                                     const char *name_space);

/** Sets the texts that people see for a key and for its value; NULL leaves one unset. */
int event_declaration_set_nice_names(event_declaration_t *declaration, const char *key,
                                     const char *key_nice_name, const char *value_nice_name);

/**
 * Adds a tag to a key, "onvif-source", "onvif-key" and "onvif-data" among them. A tag that the key
 * has already changes nothing.
 */
int event_declaration_add_key_tag(event_declaration_t *declaration, const char *key,
                                  const char *tag);

/**
 * Marks a key as the property (state) key: the events are property events, whose last value the
 * service keeps for new subscribers. `flags` must be 0. Fails when another key is marked already.
 */
int event_declaration_set_property(event_declaration_t *declaration, const char *key,
                                   unsigned int flags, GError **error);

/** A producer: one connection to the event service with a thread of its own. */
typedef struct event_producer event_producer_t;

/**
 * New producer.
 *
 * @param name       what the service and its tools show for this client
 * @param user_data  never touched by the library; event_producer_get_user_data() gives it back
 * @param timeout_ms longest time in milliseconds that a call may wait for the service;
 *                   -1 means the default of 2000. This call itself waits for the service so
 *                   long, so that a producer can be used at once when the service is there
 * @param flags      must be 0
 * @return the producer, or NULL (with a log line at the error level) when an argument is wrong or
 *         resources are exhausted. An absent event service is not a failure.
 */
event_producer_t *event_producer_new(const char *name, void *user_data, int timeout_ms,
                                     unsigned int flags);

/**
 * Undeclares everything, closes the connection, ends the thread. What was sent before is delivered.
 * NULL is accepted.
 */
void event_producer_free(event_producer_t *producer);

/** The pointer given to event_producer_new(). */
void *event_producer_get_user_data(const event_producer_t *producer);

/**
 * Declares events. The declaration is copied.
 *
 * @return the declaration id (0 or greater; valid for this producer only, never used again while
 *         the producer lives), or a negative value, with a log line at the error level, when the
 *         declaration has no key, there are EVENT_MAX_IDS already, or the service refuses it
 */
int event_producer_declare(event_producer_t *producer, const event_declaration_t *declaration);

/** Withdraws a declaration and, for a property, its kept value. Fails for an unknown id. */
int event_producer_undeclare(event_producer_t *producer, int declaration_id);

/**
 * Starts an event of a declaration, with the fixed values in place and the open ones unset.
 *
 * @param utc_time_us time of the event in microseconds since 1970-01-01 UTC; 0 means now
 * @return the event, freed by the caller with event_free(), or NULL with error
 */
event_t *event_producer_prepare_event(event_producer_t *producer, int declaration_id,
                                      int64_t utc_time_us, GError **error);

/**
 * Sets the value of a key of a prepared event. Setting a fixed key is allowed with its own value
 * only. Fails, with nothing changed, for a key that is not declared, a value of another type, a
 * value that is not valid UTF-8 or not finite.
 */
int event_set_value(event_t *event, const char *key, event_value_t value, GError **error);

/**
 * Sends a prepared event. The event stays the caller's, may be changed and sent again.
 *
 * Waits at most the producer's time-out when the service takes events slower than they are sent.
 * On failure nothing was sent: the declaration is gone, an open key is unset, the event is too
 * large, or the service is away. On success the event is on its way; only the end of the service
 * itself can lose it then.
 */
int event_producer_send_event(event_producer_t *producer, const event_t *event, GError **error);

G_END_DECLS

#endif
