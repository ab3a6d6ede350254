/** Entry of every MQTT message: cleans the payload and hands the message to the bridge. */
#pragma once

#include <string>

namespace tovrel {

/** What cleanPayload() found. */
enum class PayloadState {
    TEXT,        /**< the payload, or its longest usable beginning */
    ABSENT,      /**< there is no payload: empty text */
    NOT_UTF8,    /**< it does not begin as UTF-8: empty text */
    UNCOUNTABLE, /**< its characters cannot be counted: the message is to be dropped */
    NOT_CUT,     /**< it could not be shortened: empty text */
};

/** A payload fit for an event. */
struct CleanedPayload {
    PayloadState state = PayloadState::ABSENT;
    std::string text;
};

/**
 * Cuts a payload to the at most 1024 characters that it begins with as valid UTF-8 without NUL
 * within its first 4096 bytes. A payload whose first 50 bytes are not valid is taken for binary
 * data. Reads no byte beyond `length` (in bytes; negative means that there is no payload).
 */
CleanedPayload cleanPayload(const char *payload, int length);

/**
 * The MQTT client's message callback, on the main thread. `userData` is the EventBridge. Never
 * throws: a failure is logged and the message dropped.
 */
void messageCallback(const char *topic, bool devicePrefix, const char *payload, int payloadLength,
                     void *userData) noexcept;

} // namespace tovrel
