#include "unit/core/fuzz_service.h"

#include "core/bus_methods.h"
#include "interfaces/callback_barrier.h"
#include "support/fuzz.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>

using test_support::require;

namespace tovrel::test {

namespace {

/** The connection that the handler gets for the system bus. */
sd_bus *offeredBus = nullptr;

int callUnchecked(sd_bus_message *message, void *handler, sd_bus_error *error)
{
    const char *const member = sd_bus_message_get_member(message);
    for (const sd_bus_vtable &entry : LEGACY_METHODS) {
        if (entry.type == _SD_BUS_VTABLE_METHOD &&
            std::strcmp(entry.x.method.member, member) == 0) {
            return entry.x.method.handler(message, handler, error);
        }
    }
    return 0;
}

void checkReply(sd_bus_message *reply, std::uint32_t serial)
{
    std::uint64_t replyTo = 0;
    require(sd_bus_message_get_reply_cookie(reply, &replyTo) >= 0 && replyTo == serial,
            "an answer belongs to the call");
    if (sd_bus_message_is_method_error(reply, nullptr) > 0) {
        const char *const text = sd_bus_message_get_error(reply)->message;
        require(text != nullptr && g_utf8_validate(text, -1, nullptr),
                "an error has a text that is valid UTF-8");
    }
}

} // namespace

BusPair::BusPair()
{
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0,
            "a pair of sockets");
    checked(sd_bus_new(OutParameter(serviceEnd)), "sd_bus_new");
    checked(sd_bus_set_fd(service(), ends[0], ends[0]), "sd_bus_set_fd");
    checked(sd_bus_set_server(service(), 1, sd_id128_t{.qwords = {1, 1}}), "sd_bus_set_server");
    checked(sd_bus_set_anonymous(service(), 1), "sd_bus_set_anonymous");
    checked(sd_bus_start(service()), "sd_bus_start");
    checked(sd_bus_new(OutParameter(clientEnd)), "sd_bus_new");
    checked(sd_bus_set_fd(client(), ends[1], ends[1]), "sd_bus_set_fd");
    checked(sd_bus_set_anonymous(client(), 1), "sd_bus_set_anonymous");
    checked(sd_bus_start(client()), "sd_bus_start");
    while (sd_bus_is_ready(service()) == 0 || sd_bus_is_ready(client()) == 0) {
        serve();
        checked(sd_bus_process(client(), nullptr), "sd_bus_process");
    }
}

void BusPair::serve()
{
    while (checked(sd_bus_process(service(), nullptr), "sd_bus_process of the service") > 0) {
    }
}

std::vector<BusMessage> BusPair::exchange(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent =
            send(sd_bus_get_fd(client()), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        require(sent > 0 || errno == EAGAIN, "the service listens");
        bytes.remove_prefix(sent > 0 ? static_cast<std::size_t>(sent) : 0);
        serve();
    }
    std::vector<BusMessage> messages;
    while (true) {
        BusMessage message;
        const int result = checked(sd_bus_process(client(), OutParameter(message)), "the client");
        serve();
        if (message) {
            messages.push_back(std::move(message));
        } else if (result == 0) {
            return messages;
        }
    }
}

FuzzedService::FuzzedService() : handler((offeredBus = buses.service(), &bridge))
{
    checked(sd_bus_add_object(buses.service(), nullptr, UNCHECKED_PATH, callUnchecked,
                              static_cast<BaseDbusHandler *>(&handler)),
            "sd_bus_add_object");
}

CallResult FuzzedService::call(const WireCall &call)
{
    ++serial;
    std::vector<BusMessage> answers = buses.exchange(messageBytes(call, serial));
    CallResult result;
    result.endsService = takeCarriedException();
    if (!call.expectsReply) {
        require(answers.empty(), "a call that expects no reply has none");
        return result;
    }
    require(answers.size() == 1, "a call has one answer");
    result.reply = std::move(answers.front());
    checkReply(result.reply.get(), serial);
    require(!result.endsService || sd_bus_message_is_method_error(result.reply.get(), nullptr) > 0,
            "the caller learns that the service ends");
    return result;
}

void FuzzedService::startAnew()
{
    bridge.onNextUse = nullptr;
    bridge.replaceSubscriptions({});
    bridge.setPublicationConfig({});
    bridge.resets = 0;
}

bool FuzzedService::takeCarriedException()
{
    const auto quit = [](gpointer data) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop *>(data));
        return G_SOURCE_REMOVE;
    };
    const guint quitting = g_idle_add(quit, loop.get());
    try {
        runMainLoop(loop.get());
        return false;
    } catch (const std::exception &) {
        g_source_remove(quitting);
        return true;
    }
}

} // namespace tovrel::test

extern "C" {

int __wrap_sd_bus_default_system(sd_bus **bus)
{
    *bus = sd_bus_ref(tovrel::test::offeredBus);
    return 1;
}

int __wrap_sd_bus_request_name(sd_bus * /*bus*/, const char * /*name*/, std::uint64_t /*flags*/)
{
    return 1;
}

} // extern "C"
