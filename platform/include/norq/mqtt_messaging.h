/**
 * The device's MQTT client: one broker connection a handle, configured by the platform's settings
 * file and not by its user.
 *
 * No call waits for the network. A thread of the library drives the connection; while the broker
 * is away it reconnects with exponential back-off and jitter and then subscribes again what is
 * subscribed. Every change of status is announced through the event service as the property event
 * "Device"/"MQTT"/"ClientStatus" with the boolean items "active" and "connected".
 *
 * Any thread may call the functions with a handle, also the message callback itself; calls on one
 * handle are serialised inside. Only MQTTMsg_delete() must not overlap with other calls on its
 * handle.
 *
 * Device topic prefix: with `use_device_topic_prefix` the library puts the prefix of the settings
 * and one "/" in front of a topic or filter. With an empty prefix the flag changes nothing in the
 * topic. docs/mqtt-client.md describes the settings file.
 */
#ifndef NORQ_MQTT_MESSAGING_H
#define NORQ_MQTT_MESSAGING_H

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One MQTT client. */
typedef struct MQTTMsg MQTTMsg_t;

/** Results of the functions below; 0 is success. The numbers are part of the interface. */
typedef enum MQTTMsg_result {
    MQTTMSG_OK = 0,
    MQTTMSG_NO_MEMORY = 1,        /**< memory or another resource is exhausted */
    MQTTMSG_INVALID_ARGUMENT = 2, /**< NULL, a QoS other than 0, 1, 2, unknown flags */
    MQTTMSG_NOT_INITIALISED = 3,  /**< MQTTMsg_init() has not succeeded */
    MQTTMSG_INVALID_TOPIC = 4,  /**< topic or filter empty, wildcard misplaced, NUL or bad UTF-8 */
    MQTTMSG_TOO_LARGE = 5,      /**< topic over 65,535 bytes or payload over the limit */
    MQTTMSG_QUEUE_FULL = 6,     /**< as many messages as the settings allow are waiting */
    MQTTMSG_INACTIVE = 7,       /**< the settings switch MQTT messaging off */
    MQTTMSG_NOT_SUBSCRIBED = 8, /**< unsubscribe: the filter is not subscribed */
    MQTTMSG_FAILED = 9          /**< anything else; the error text says what */
} MQTTMsg_result;

/**
 * Receives one message.
 *
 * Runs on the thread that iterates the GLib default main context. All pointers are valid during
 * the call only. Must not throw.
 *
 * A message is matched against the subscribed filters in two forms: with the device topic prefix
 * taken off, against the filters subscribed with the flag, and as it stands, against the others.
 * It is given once for each form in which some filter matches, however many filters of that form
 * match. With an empty prefix both forms are one: it is given once, `device_topic_prefix` true if
 * a filter with the flag matches. A message that no filter matches (left over from a persistent
 * session, say) is given once, with the prefix taken off if it has it. A topic has the prefix only
 * if something follows the prefix and its "/". What the broker itself delivers several times, a
 * retained message for each of several overlapping filters, say, is several messages.
 *
 * Messages that wait for the main loop are bounded; beyond the bound nothing is read from the
 * broker until there is room, and nothing is dropped.
 *
 * @param topic               the topic, NUL-terminated, the prefix taken off when the flag is true
 * @param device_topic_prefix whether the prefix was taken off
 * @param payload             payload_length bytes, followed by a NUL that is not counted; NULL
 *                            when the message has no payload
 * @param payload_length      length of the payload in bytes, 0 or more
 * @param user_data           what was given to MQTTMsg_new2()
 */
typedef void (*MQTTMsg_message_callback)(const char *topic, bool device_topic_prefix,
                                         const char *payload, int payload_length, void *user_data);

/** New handle, not connected; NULL when memory is exhausted or the callback is NULL. */
MQTTMsg_t *MQTTMsg_new2(MQTTMsg_message_callback callback, void *user_data);

/**
 * Reads the settings, announces the status and starts connecting. Succeeds while the broker is
 * away, and when the settings switch MQTT off. `flags` must be 0. To be called once: another call
 * gives MQTTMSG_FAILED.
 */
int MQTTMsg_init(MQTTMsg_t *handle, int flags);

/**
 * Disconnects, ends the thread and frees the handle. What is still queued is dropped. When it
 * returns no callback runs and none will. To be called on the thread of the GLib default main
 * context, also from within the callback. NULL is accepted.
 *
 * Returns within a tenth of a second as a rule, within 0.6 s when the event service hangs. A
 * lookup of the broker's name that is under way adds at most a second; its thread then ends by
 * itself later on.
 */
void MQTTMsg_delete(MQTTMsg_t *handle);

/**
 * Hands in a message for publication.
 *
 * On 0 the message is accepted: it is sent as soon as the connection allows, QoS 1 and 2 until
 * the broker has confirmed it. At most as many messages as the settings' queue bound are accepted
 * and not yet finished; beyond it the result is MQTTMSG_QUEUE_FULL. A message that was refused is
 * never sent. What a broker would end the connection for is refused here. A QoS 0 message that is
 * under way when the connection breaks may be lost.
 *
 * @param topic                   without wildcards and control characters, 1 to 65,535 bytes with
 *                                the prefix, at most 200 "/"
 * @param use_device_topic_prefix see above
 * @param payload                 payload_length bytes; may be NULL when the length is 0
 * @param qos                     0, 1 or 2
 * @param retain                  whether the broker keeps the message
 * @param error_text              on failure set to a text that the caller releases with free();
 *                                on success untouched; may be NULL
 * @return 0 or a code of MQTTMsg_result
 */
int MQTTMsg_publish(MQTTMsg_t *handle, const char *topic, bool use_device_topic_prefix,
                    const char *payload, size_t payload_length, int qos, bool retain,
                    char **error_text);

/**
 * Subscribes a filter, now if connected and again at every connection until it is unsubscribed.
 * Subscribing a filter again changes its QoS and, as MQTT has it, brings retained messages again.
 * A filter with and without the flag are two subscriptions; where both are the same filter for the
 * broker, it gets the higher QoS. The broker's own refusal arrives later and is logged as a
 * warning. There are at most 10,000 subscriptions; beyond that the result is MQTTMSG_FAILED.
 */
int MQTTMsg_subscribe(MQTTMsg_t *handle, const char *topic_filter, int qos,
                      bool use_device_topic_prefix, char **error_text);

/** Ends a subscription; MQTTMSG_NOT_SUBSCRIBED when there is none of this filter and flag. */
int MQTTMsg_unsubscribe(MQTTMsg_t *handle, const char *topic_filter, bool use_device_topic_prefix,
                        char **error_text);

/** Whether a topic matches a filter by the rules of MQTT; false if either is invalid or NULL. */
bool MQTTMsg_topic_matches(const char *topic_filter, const char *topic);

/** Whether a text is a valid filter for a subscription by the rules of MQTT; false for NULL. */
bool MQTTMsg_check_sub_topic(const char *topic_filter);

#ifdef __cplusplus
}
#endif

#endif
