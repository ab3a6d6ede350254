/**
 * Reading an event and rendering it as JSON.
 *
 * Keys keep the order of their declaration; indexes run from 0 to event_get_key_count() - 1.
 * The topic of an event is made of its keys "topic0", "topic1", ... which carry a namespace.
 */
#ifndef NORQ_EVENT_H
#define NORQ_EVENT_H

#include <norq/event_types.h>

G_BEGIN_DECLS

/** Frees an event; NULL is accepted. */
void event_free(event_t *event);

/** Makes an independent handle of the same event, to be freed on its own. May share the content. */
event_t *event_copy(const event_t *event);

/**
 * The value of a key as text, NULL when the event has no such key or it is not set.
 * Booleans read "0" or "1", integers are decimal, doubles have the shortest text that reads
 * back as the same number.
 */
const char *event_get_value(const event_t *event, const char *key);

/** The namespace of a key, NULL when the event has no such key or the key has no namespace. */
const char *event_get_name_space(const event_t *event, const char *key);

/** Number of keys, topic keys included. */
unsigned int event_get_key_count(const event_t *event);

/** Name of the key at an index, NULL beyond the last. */
const char *event_get_key_at(const event_t *event, unsigned int index);

/** Value of the key at an index as event_get_value() gives it, NULL beyond the last. */
const char *event_get_value_at(const event_t *event, unsigned int index);

/** Namespace of the key at an index, NULL when it has none or beyond the last. */
const char *event_get_name_space_at(const event_t *event, unsigned int index);

/** Type of the key at an index; EVENT_VALUE_STRING beyond the last. */
event_value_type event_get_type_at(const event_t *event, unsigned int index);

/**
 * Tags of the key at an index in the order of their declaration: a list of newly allocated
 * texts. The caller releases each text with g_free() and the list with g_list_free(). An empty
 * list is NULL.
 */
GList *event_get_tags_at(const event_t *event, unsigned int index);

/** Non-zero when the declaration has a property (state) key. */
int event_is_property(const event_t *event);

/** Non-zero when the event was declared as internal to the device (EVENT_DECLARATION_INTERNAL). */
int event_is_internal(const event_t *event);

/**
 * Non-zero when this delivery is the kept last value of a property, given because the
 * subscription is new, or because the service or the producer came back after a loss of the
 * service; zero for an event that was just sent.
 */
int event_is_initial(const event_t *event);

/** When the event was prepared: microseconds since 1970-01-01 UTC. */
int64_t event_get_time(const event_t *event);

/** How event_get_json() names things. */
typedef struct json_options json_options_t;

/** New options: namespaces under their own prefixes ("tns1", "tnsnorq"), no serial number. */
json_options_t *json_options_new(void);

/** Frees options; NULL is accepted. */
void json_options_free(json_options_t *options);

/** Name to use for the ONVIF namespace "tns1" in the topic; NULL restores "tns1". */
void json_options_set_onvif_namespace(json_options_t *options, const char *name);

/** Name to use for the vendor namespace "tnsnorq" in the topic; NULL restores "tnsnorq". */
void json_options_set_norq_namespace(json_options_t *options, const char *name);

/** Device serial number to put into the document; NULL leaves it out. */
void json_options_set_serialnumber(json_options_t *options, const char *serial_number);

/**
 * Renders an event as one line of JSON (docs/event-json.md describes the document,
 * docs/event-json.schema.json is its schema).
 *
 * `options` may be NULL for the defaults. Returns a text that the caller releases with free(),
 * or NULL when memory is exhausted or the event cannot be rendered. May be called on any thread.
 */
char *event_get_json(const event_t *event, const json_options_t *options);

G_END_DECLS

#endif
