#include "event/tool/service.h"

#include "event/core/bus_names.h"
#include "event/tool/failure.h"
#include "event/tool/handles.h"

namespace norq::tool {

namespace {

/** Calls a method of the service that takes no arguments. */
BusMessage call(sd_bus *bus, const char *interface, const char *method)
{
    BusError problem;
    BusMessage reply;
    const int result = sd_bus_call_method(bus, event::BUS_NAME, event::BUS_PATH, interface, method,
                                          problem.out(), Out(reply), nullptr);
    if (result < 0) {
        const std::string text = problem.text();
        throw Failure("the event service does not answer: " +
                      (text.empty() ? std::string(g_strerror(-result)) : text));
    }
    return reply;
}

Bus openBus()
{
    Bus bus;
    const int result = sd_bus_open_system(Out(bus));
    if (result < 0) {
        throw Failure(std::string("no connection to the system bus: ") + g_strerror(-result));
    }
    return bus;
}

} // namespace

void requireService()
{
    const Bus bus = openBus();
    call(bus.get(), "org.freedesktop.DBus.Peer", "Ping");
}

std::string listDeclarations()
{
    const Bus bus = openBus();
    const BusMessage reply = call(bus.get(), event::BUS_INTERFACE, "ListDeclarations");
    const char *text = nullptr;
    const int result = sd_bus_message_read(reply.get(), "s", &text);
    if (result <= 0) {
        throw Failure("the event service answered with something else than a text");
    }
    return text;
}

} // namespace norq::tool
