#include "mqtt/message_callback.h"

#include "interfaces/c_handles.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/log.h"
#include "mqtt/event_bridge.h"

#include <glib.h>

#include <algorithm>

namespace tovrel {

namespace {

/** How much of a payload decides whether it is text at all. */
constexpr int PROBED_BYTES = 50;
constexpr int MAX_BYTES = 4096;
constexpr glong MAX_CHARACTERS = 1024;

void handleMessage(const char *topic, bool devicePrefix, const char *payload, int payloadLength,
                   EventBridge &bridge)
{
    const CleanedPayload cleaned = cleanPayload(payload, payloadLength);
    switch (cleaned.state) {
    case PayloadState::UNCOUNTABLE:
        tovrel_log(LOG_LEVEL_WARN, "%sInvalid encoding of payload", LOG_PREFIX);
        return;
    case PayloadState::NOT_UTF8:
        tovrel_log(LOG_LEVEL_PROGRESS, "%sPayload doesn't contain valid utf-8 data", LOG_PREFIX);
        break;
    case PayloadState::NOT_CUT:
        tovrel_log(LOG_LEVEL_FAILURE, "%sError getting substring", LOG_PREFIX);
        break;
    case PayloadState::TEXT:
    case PayloadState::ABSENT:
        break;
    }
    bridge.dispatchMessage(topic, devicePrefix, cleaned.text.c_str());
}

} // namespace

CleanedPayload cleanPayload(const char *payload, int length)
{
    if (length < 0 || payload == nullptr) {
        return {};
    }
    if (!g_utf8_validate(payload, std::min(length, PROBED_BYTES), nullptr)) {
        return {PayloadState::NOT_UTF8, {}};
    }
    const char *validEnd = payload;
    g_utf8_validate(payload, std::min(length, MAX_BYTES), &validEnd);
    const glong characters = g_utf8_pointer_to_offset(payload, validEnd);
    if (characters < 0) {
        return {PayloadState::UNCOUNTABLE, {}};
    }
    const GText text(g_utf8_substring(payload, 0, std::min(characters, MAX_CHARACTERS)));
    if (!text) {
        return {PayloadState::NOT_CUT, {}};
    }
    return {PayloadState::TEXT, text.get()};
}

void messageCallback(const char *topic, bool devicePrefix, const char *payload, int payloadLength,
                     void *userData) noexcept
{
    logAndCarryOn("messageCallback", [&] {
        if (userData == nullptr) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sNo tovrel, cannot handle message", LOG_PREFIX);
            return;
        }
        handleMessage(topic, devicePrefix, payload, payloadLength,
                      *static_cast<EventBridge *>(userData));
    });
}

} // namespace tovrel
