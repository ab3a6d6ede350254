#include "core/bus_methods.h"

#include "core/bus_fields.h"
#include "core/bus_text.h"
#include "core/dbus_handler.h"
#include "core/reply_limit.h"
#include "interfaces/base_dbus_handler.h"
#include "interfaces/c_handles.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"
#include "interfaces/sd_bus_handles.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace tovrel {

namespace {

/** For what nobody expects: the caller is answered, and the service ends. */
constexpr int UNEXPECTED = -EIO;

/**
 * Lets sd-bus answer with an error once the method has returned the result of this. The bus daemon
 * would disconnect a sender of invalid UTF-8, and sd-bus would send nothing for other characters
 * that the bus does not carry, so the text is made fit first.
 */
int failWith(sd_bus_error *error, const char *text)
{
    return sd_bus_error_set(error, INTERNAL_ERROR, sendableText(text).c_str());
}

int setMqttToEventConfig(sd_bus_message *message, void *data, sd_bus_error *error)
{
    return carryToMainLoop(UNEXPECTED, [&] {
        auto *const handler = static_cast<BaseDbusHandler *>(data);
        if (handler == nullptr) {
            return failWith(error, "No handler");
        }
        try {
            return handler->handleSetMQTTToEventConfig(message, error);
        } catch (const std::runtime_error &failure) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sSetMQTTToEventConfig error: %s", LOG_PREFIX,
                       failure.what());
            return failWith(error, failure.what());
        }
    });
}

/** An empty reply to a call; nothing, with the error set, when it cannot be made. */
BusMessage newReply(sd_bus_message *call, sd_bus_error *error)
{
    BusMessage reply;
    const int result = sd_bus_message_new_method_return(call, OutParameter(reply));
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sError creating reply: %s", LOG_PREFIX,
                   g_strerror(-result));
        failWith(error, "Could not create reply");
        reply.reset();
    }
    return reply;
}

int getMqttToEventConfig(sd_bus_message *message, void *data, sd_bus_error *error)
{
    return carryToMainLoop(UNEXPECTED, [&] {
        const BusMessage reply = newReply(message, error);
        if (!reply) {
            return UNEXPECTED;
        }
        auto *const handler = static_cast<BaseDbusHandler *>(data);
        if (handler == nullptr) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sGetMQTTToEventConfig: Could not reply - no handler",
                       LOG_PREFIX);
            return failWith(error, "No handler");
        }
        try {
            return handler->fillMQTTToEventConfigReply(reply.get());
        } catch (const std::runtime_error &failure) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sGetMQTTToEventConfig Error: %s", LOG_PREFIX,
                       failure.what());
            return failWith(error, failure.what());
        }
    });
}

int setEventToMqttConfig(sd_bus_message *message, void *data, sd_bus_error * /*error*/)
{
    return carryToMainLoop(UNEXPECTED, [&] {
        auto *const handler = static_cast<BaseDbusHandler *>(data);
        const int status = handler == nullptr ? -1 : handler->handleSetEventToMQTTConfig(message);
        return sd_bus_reply_method_return(message, "i", status);
    });
}

/** Leaves the caller without an answer, as it has always been where this method has no handler. */
int leaveUnanswered(sd_bus_message *message)
{
    BusError unused;
    failWith(unused.slot(), "No handler");
    sd_bus_reply_method_error(message, nullptr);
    return 1;
}

int getEventToMqttConfig(sd_bus_message *message, void *data, sd_bus_error *error)
{
    return carryToMainLoop(UNEXPECTED, [&] {
        const BusMessage reply = newReply(message, error);
        if (!reply) {
            return UNEXPECTED;
        }
        auto *const handler = static_cast<BaseDbusHandler *>(data);
        if (handler == nullptr) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sGetEventToMQTTConfig: Could not reply - no handler",
                       LOG_PREFIX);
            return leaveUnanswered(message);
        }
        try {
            return handler->fillEventToMQTTConfigReply(reply.get());
        } catch (const SdBusException &failure) {
            return failWith(error, failure.what());
        }
    });
}

int handleRequest(sd_bus_message *message, void *data, sd_bus_error *error)
{
    return carryToMainLoop(UNEXPECTED, [&] {
        auto &handler = static_cast<DbusHandler &>(*static_cast<BaseDbusHandler *>(data));
        std::string request;
        const int result = readFields(message, request);
        if (result < 0) {
            // The text is as clients of the log know it.
            tovrel_log(LOG_LEVEL_FAILURE, "%sCould read input message: %s ", LOG_PREFIX,
                       g_strerror(-result));
        }
        const MallocText response = handler.processRequest(result < 0 ? nullptr : request.c_str());
        if (!response) {
            return failWith(error, "Could not process request");
        }
        if (ReplySize().add({response.get()}) < 0) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sToo large for the bus: a response of %zu bytes",
                       LOG_PREFIX, std::strlen(response.get()));
            return failWith(error, "Could not process request");
        }
        return sd_bus_reply_method_return(message, "s", response.get());
    });
}

} // namespace

constinit const std::array<sd_bus_vtable, 3> API_METHODS{
    {SD_BUS_VTABLE_START(0),
     SD_BUS_METHOD("HandleRequest", "s", "s", handleRequest, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_VTABLE_END}};

constinit const std::array<sd_bus_vtable, 6> LEGACY_METHODS{
    {SD_BUS_VTABLE_START(0),
     SD_BUS_METHOD("SetMQTTToEventConfig", "a(sbib)", "i", setMqttToEventConfig,
                   SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("GetMQTTToEventConfig", "", "a(sbib)", getMqttToEventConfig,
                   SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("SetEventToMQTTConfig", "ssbbba(ssi)", "i", setEventToMqttConfig,
                   SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("GetEventToMQTTConfig", "", "ssbbba(ssi)", getEventToMqttConfig,
                   SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_VTABLE_END}};

} // namespace tovrel
