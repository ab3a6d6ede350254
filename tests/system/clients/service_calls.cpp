#include "service_calls.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <system_error>

namespace clients {

namespace {

constexpr const char *OBJECT_PATH = "/com/norq/Tovrel1";
constexpr const char *LEGACY_INTERFACE = "com.norq.Tovrel1";
constexpr const char *API_INTERFACE = "com.norq.Mirel.Backend1";

[[noreturn]] void giveUp(const std::string &why)
{
    std::fprintf(stderr, "%s\n", why.c_str());
    std::_Exit(2);
}

Message newMethodCall(sd_bus *bus, const char *interface, const std::string &method)
{
    sd_bus_message *call = nullptr;
    require(sd_bus_message_new_method_call(bus, &call, SERVICE_NAME, OBJECT_PATH, interface,
                                           method.c_str()),
            "new call");
    return {call, sd_bus_message_unref};
}

Message newDaemonCall(sd_bus *bus, const char *method)
{
    sd_bus_message *call = nullptr;
    require(sd_bus_message_new_method_call(bus, &call, "org.freedesktop.DBus",
                                           "/org/freedesktop/DBus", "org.freedesktop.DBus", method),
            "new call");
    return {call, sd_bus_message_unref};
}

Message newServicePid(sd_bus *bus)
{
    Message call = newDaemonCall(bus, "GetConnectionUnixProcessID");
    require(sd_bus_message_append(call.get(), "s", SERVICE_NAME), "name");
    return call;
}

void appendItems(sd_bus_message *call, std::istream &topics)
{
    require(sd_bus_message_open_container(call, 'a', "(sbib)"), "items");
    for (std::string topic; topics >> topic;) {
        require(sd_bus_message_append(call, "(sbib)", topic.c_str(), 0, 0, 0), "item");
    }
    require(sd_bus_message_close_container(call), "items");
}

void appendPublication(sd_bus_message *call, std::istream &topicFilters)
{
    require(sd_bus_message_append(call, "ssbbb", "default", "", 1, 1, 0), "settings");
    require(sd_bus_message_open_container(call, 'a', "(ssi)"), "filters");
    for (std::string topicFilter; topicFilters >> topicFilter;) {
        require(sd_bus_message_append(call, "(ssi)", topicFilter.c_str(), "none", 0), "filter");
    }
    require(sd_bus_message_close_container(call), "filters");
}

std::string itemsOf(sd_bus_message *reply, const char *signature, const char *restOfItem)
{
    std::string items;
    require(sd_bus_message_enter_container(reply, 'a', signature), "items");
    while (require(sd_bus_message_enter_container(reply, 'r', restOfItem), "item") > 0) {
        const char *topic = nullptr;
        require(sd_bus_message_read(reply, "s", &topic), "topic");
        items += std::string(" ") + topic;
        require(sd_bus_message_skip(reply, restOfItem + 1), "rest of the item");
        require(sd_bus_message_exit_container(reply), "item");
    }
    return items;
}

std::string textOf(sd_bus_message *reply)
{
    const char *text = nullptr;
    require(sd_bus_message_read(reply, "s", &text), "text");
    return std::string(" ") + text;
}

std::string numberOf(sd_bus_message *reply, const char *type)
{
    std::int32_t number = 0;
    require(sd_bus_message_read(reply, type, &number), "number");
    return " " + std::to_string(number);
}

std::string filtersOf(sd_bus_message *reply)
{
    require(sd_bus_message_skip(reply, "ssbbb"), "settings");
    return itemsOf(reply, "(ssi)", "ssi");
}

} // namespace

int require(int result, const char *step)
{
    if (result < 0) {
        giveUp(std::string(step) + ": " + std::generic_category().message(-result));
    }
    return result;
}

Event openEventLoop()
{
    sd_event *loop = nullptr;
    require(sd_event_default(&loop), "event loop");
    return {loop, sd_event_unref};
}

Bus openBus(sd_event *loop)
{
    sd_bus *bus = nullptr;
    require(sd_bus_open_system(&bus), "system bus");
    Bus opened(bus, sd_bus_flush_close_unref);
    require(sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL), "attach");
    return opened;
}

Message newCall(sd_bus *bus, const std::string &line)
{
    std::istringstream words(line);
    std::string method;
    words >> method;
    if (method == "Sync") {
        return newDaemonCall(bus, "GetId");
    }
    if (method == "ServicePid") {
        return newServicePid(bus);
    }
    const bool isRequest = method == "HandleRequest";
    Message call = newMethodCall(bus, isRequest ? API_INTERFACE : LEGACY_INTERFACE, method);
    if (isRequest) {
        const std::string text = line.size() > method.size() ? line.substr(method.size() + 1) : "";
        require(sd_bus_message_append(call.get(), "s", text.c_str()), "request");
    } else if (method == "SetMQTTToEventConfig") {
        appendItems(call.get(), words);
    } else if (method == "SetEventToMQTTConfig") {
        appendPublication(call.get(), words);
    } else if (method != "GetMQTTToEventConfig" && method != "GetEventToMQTTConfig") {
        giveUp("unknown method: " + line);
    }
    return call;
}

std::string describe(sd_bus_message *reply)
{
    if (const sd_bus_error *const error = sd_bus_message_get_error(reply)) {
        return std::string("error ") + error->name + " " +
               (error->message != nullptr ? error->message : "");
    }
    const std::string signature = sd_bus_message_get_signature(reply, 1);
    if (signature == "s") {
        return "ok" + textOf(reply);
    }
    if (signature == "i" || signature == "u") {
        return "ok" + numberOf(reply, signature.c_str());
    }
    if (signature == "a(sbib)") {
        return "ok" + itemsOf(reply, "(sbib)", "sbib");
    }
    if (signature == "ssbbba(ssi)") {
        return "ok" + filtersOf(reply);
    }
    return "error unexpected reply " + signature;
}

} // namespace clients
