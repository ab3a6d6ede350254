#include "bus.h"

#include "environment.h"

#include <cstdint>
#include <stdexcept>

namespace benchmarks {

using tovrel::BusError;
using tovrel::BusMessage;
using tovrel::OutParameter;

int checked(int result, const char *what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + g_strerror(-result));
    }
    return result;
}

Bus openBus()
{
    Bus bus;
    checked(sd_bus_open_system(OutParameter(bus)), "sd_bus_open_system");
    return bus;
}

void allowOwnName()
{
    const std::string name = OWN_NAME;
    writeFile(fromSandbox("SANDBOX_DIR") + "/system.d/" + name + ".conf",
              R"(<busconfig><policy user="root"><allow own=")" + name +
                  R"("/></policy><policy context="default"><allow send_destination=")" + name +
                  "\"/></policy></busconfig>\n");
    const Bus bus = openBus();
    checked(sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "ReloadConfig", nullptr, nullptr, nullptr),
            "ReloadConfig");
}

void takeOwnName(sd_bus *bus)
{
    checked(sd_bus_request_name(bus, OWN_NAME, 0), "sd_bus_request_name");
}

void serve(sd_bus *bus)
{
    while (true) {
        while (checked(sd_bus_process(bus, nullptr), "sd_bus_process") > 0) {
        }
        checked(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
    }
}

bool isOwned(sd_bus *bus, const char *name)
{
    return sd_bus_get_name_creds(bus, name, 0, nullptr) >= 0;
}

BusMessage newPing(sd_bus *bus, const char *name)
{
    BusMessage message;
    checked(sd_bus_message_new_method_call(bus, OutParameter(message), name, "/",
                                           "org.freedesktop.DBus.Peer", "Ping"),
            "Ping");
    return message;
}

BusMessage call(sd_bus *bus, sd_bus_message *message)
{
    BusError error;
    BusMessage reply;
    const int result = sd_bus_call(bus, message, 0, error.slot(), OutParameter(reply));
    if (result < 0) {
        throw std::runtime_error(
            std::string(sd_bus_message_get_member(message)) + ": " +
            (error.message() != nullptr ? error.message() : g_strerror(-result)));
    }
    return reply;
}

} // namespace benchmarks
