#include "event/daemon/bus_service.h"

#include "event/core/barrier.h"
#include "event/core/bus_names.h"
#include "event/daemon/bus_arguments.h"
#include "event/daemon/listing.h"

#include <cerrno>
#include <optional>
#include <utility>

namespace norq::event {
namespace {

const char *nameOf(Refusal refusal)
{
    switch (refusal) {
    case Refusal::LIMIT:
        return ERROR_LIMIT;
    case Refusal::UNKNOWN:
        return ERROR_UNKNOWN;
    case Refusal::INVALID:
    case Refusal::NONE:
        break;
    }
    return ERROR_INVALID;
}

int reply(sd_bus_message *message, const Answer &answer)
{
    if (answer.refusal == Refusal::NONE) {
        return sd_bus_reply_method_return(message, nullptr);
    }
    return sd_bus_reply_method_errorf(message, nameOf(answer.refusal), "%s", answer.text.c_str());
}

Answer answerOf(const Status &status)
{
    return status ? Answer() : Answer{Refusal::INVALID, status.text()};
}

std::string senderOf(sd_bus_message *message)
{
    const char *sender = sd_bus_message_get_sender(message);
    return sender == nullptr ? "" : sender;
}

} // namespace

const sd_bus_vtable BusService::METHODS[] = { // NOLINT(modernize-avoid-c-arrays): see the header
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("Open", "s", SD_BUS_PARAM(name), "h", SD_BUS_PARAM(socket), onOpen,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Declare", "uusa(suavsssas)",
                             SD_BUS_PARAM(id) SD_BUS_PARAM(flags) SD_BUS_PARAM(property)
                                 SD_BUS_PARAM(keys),
                             "", , onDeclare, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Undeclare", "u", SD_BUS_PARAM(id), "", , onUndeclare,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Subscribe", "ua(ss)a(ss)as",
                             SD_BUS_PARAM(id) SD_BUS_PARAM(values) SD_BUS_PARAM(namespaces)
                                 SD_BUS_PARAM(absent),
                             "", , onSubscribe, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Unsubscribe", "u", SD_BUS_PARAM(id), "", , onUnsubscribe,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("ListDeclarations", "", , "s", SD_BUS_PARAM(json), onListDeclarations,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("ListMatching", "a(ss)a(ss)as",
                             SD_BUS_PARAM(values) SD_BUS_PARAM(namespaces) SD_BUS_PARAM(absent),
                             "s", SD_BUS_PARAM(json), onListMatching, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

int BusService::attach(sd_bus *bus)
{
    return sd_bus_add_object_vtable(bus, Out(slot), BUS_PATH, BUS_INTERFACE, METHODS, this);
}

int BusService::onOpen(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withBarrier("Opening a client", -ENOMEM, [&] {
        const char *name = nullptr;
        if (const int result = sd_bus_message_read(message, "s", &name); result < 0) {
            return result;
        }
        Descriptor socket;
        ClientTable &table = static_cast<BusService *>(self)->clients;
        const Answer answer = table.open(senderOf(message), name, socket);
        if (answer.refusal != Refusal::NONE) {
            return reply(message, answer);
        }
        return sd_bus_reply_method_return(message, "h", socket.get());
    });
}

/** Runs `handler` with the caller's client and answers with what it gives. */
template <typename Handler>
int BusService::withClient(sd_bus_message *message, void *self, Handler handler)
{
    return withBarrier("Serving a client on the bus", -ENOMEM, [&] {
        ClientTable &table = static_cast<BusService *>(self)->clients;
        Connection *client = table.find(senderOf(message));
        if (client == nullptr) {
            return reply(message, {Refusal::UNKNOWN, "the caller has not opened a client"});
        }
        const Answer answer = handler(table.registry(), *client);
        const int result = reply(message, answer);
        table.registry().flush();
        return result;
    });
}

int BusService::onDeclare(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withClient(message, self, [message](Registry &registry, Connection &client) {
        std::uint32_t id = 0;
        std::optional<Declaration> declaration;
        if (const Status read = readDeclare(message, id, declaration); !read) {
            return answerOf(read);
        }
        return registry.declare(client, id, std::move(*declaration));
    });
}

int BusService::onUndeclare(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withClient(message, self, [message](Registry &registry, Connection &client) {
        std::uint32_t id = 0;
        if (sd_bus_message_read(message, "u", &id) < 0) {
            return Answer{Refusal::INVALID, "the message cannot be read"};
        }
        client.drain(); // events sent before are events of the declaration still
        return registry.undeclare(client, id);
    });
}

int BusService::onSubscribe(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withClient(message, self, [message](Registry &registry, Connection &client) {
        std::uint32_t id = 0;
        Expression expression;
        if (const Status read = readSubscribe(message, id, expression); !read) {
            return answerOf(read);
        }
        return registry.subscribe(client, id, std::move(expression));
    });
}

int BusService::onUnsubscribe(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withClient(message, self, [message](Registry &registry, Connection &client) {
        std::uint32_t id = 0;
        if (sd_bus_message_read(message, "u", &id) < 0) {
            return Answer{Refusal::INVALID, "the message cannot be read"};
        }
        return registry.unsubscribe(client, id);
    });
}

int BusService::replyWithList(sd_bus_message *message, const Expression &expression)
{
    const auto listing = listDeclarations(clients.registry().clients(), expression);
    if (!listing) {
        return reply(message, {Refusal::LIMIT, "the list is too long for one message"});
    }
    return sd_bus_reply_method_return(message, "s", listing->c_str());
}

int BusService::onListDeclarations(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withBarrier("Listing declarations", -ENOMEM,
                       [&] { return static_cast<BusService *>(self)->replyWithList(message, {}); });
}

int BusService::onListMatching(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withBarrier("Listing declarations", -ENOMEM, [&] {
        Expression expression;
        if (const Status read = readExpression(message, expression); !read) {
            return reply(message, answerOf(read));
        }
        return static_cast<BusService *>(self)->replyWithList(message, expression);
    });
}

} // namespace norq::event
