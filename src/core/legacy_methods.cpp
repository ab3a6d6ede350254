#include "core/dbus_handler.h"
#include "interfaces/exceptions.h"

namespace tovrel {

namespace {

/**
 * The method tables have no entries for these methods yet, so the bus itself answers a call with
 * "unknown method" and nothing gets here.
 */
[[noreturn]] void refuse()
{
    throw SdBusException("The method is not available");
}

} // namespace

int DbusHandler::handleSetMQTTToEventConfig(sd_bus_message * /*message*/, sd_bus_error * /*error*/)
{
    refuse();
}

int DbusHandler::fillMQTTToEventConfigReply(sd_bus_message * /*reply*/)
{
    refuse();
}

int DbusHandler::handleSetEventToMQTTConfig(sd_bus_message * /*message*/)
{
    refuse();
}

int DbusHandler::fillEventToMQTTConfigReply(sd_bus_message * /*reply*/)
{
    refuse();
}

} // namespace tovrel
