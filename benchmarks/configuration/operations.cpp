#include "operations.h"

#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace configuration {
namespace {

using benchmarks::checked;
using tovrel::BusMessage;

constexpr const char *API_INTERFACE = "com.norq.Mirel.Backend1";
constexpr const char *LEGACY_INTERFACE = "com.norq.Tovrel1";
/** What a struct of the legacy methods has beside its topic filter: lengths, padding, the rest. */
constexpr std::size_t BYTES_OF_STRUCT = 24;

constexpr const char *DONE = R"({"data")";
constexpr const char *BAD_ITEM = R"({"error":{"code":0,"message":"Cannot import MQTT to event)";

BusMessage newCall(sd_bus *bus, const char *interface, const char *method)
{
    BusMessage message;
    checked(sd_bus_message_new_method_call(bus, tovrel::OutParameter(message),
                                           benchmarks::SERVICE_NAME, benchmarks::SERVICE_PATH,
                                           interface, method),
            method);
    return message;
}

/** A request of the configuration API, whose answer begins as expected. */
Operation apiRequest(const std::string &name, const std::function<std::string(int)> &textOf,
                     bool changes, const std::string &expected = DONE)
{
    Operation operation;
    operation.name = name;
    operation.requestBytes = textOf(0).size();
    operation.changes = changes;
    operation.make = [textOf](sd_bus *bus, int number) {
        BusMessage message = newCall(bus, API_INTERFACE, "HandleRequest");
        checked(sd_bus_message_append(message.get(), "s", textOf(number).c_str()), "append");
        return message;
    };
    operation.check = [name, expected](sd_bus_message *answer) {
        const char *text = nullptr;
        checked(sd_bus_message_read(answer, "s", &text), "read");
        if (!std::string_view(text).starts_with(expected)) {
            throw std::runtime_error(name + " was answered with " + text);
        }
        return std::string_view(text).size();
    };
    return operation;
}

/** The same request each time. */
Operation apiRequest(const std::string &name, const std::string &text, bool changes = false,
                     const std::string &expected = DONE)
{
    return apiRequest(
        name, [text](int) -> std::string { return text; }, changes, expected);
}

std::size_t checkStatus(sd_bus_message *answer)
{
    std::int32_t status = -1;
    checked(sd_bus_message_read(answer, "i", &status), "read");
    if (status != 0) {
        throw std::runtime_error("a legacy method answered with " + std::to_string(status));
    }
    return sizeof status;
}

/** Counts the structs or pairs of an array, each of which begins with a text. */
std::size_t checkArray(sd_bus_message *answer, const char *fields, int count)
{
    checked(sd_bus_message_enter_container(answer, 'a', fields), "enter");
    const std::string inner = std::string(fields).substr(1, std::string_view(fields).size() - 2);
    const char kind = *fields == '(' ? 'r' : 'e';
    std::size_t bytes = 0;
    int seen = 0;
    while (checked(sd_bus_message_enter_container(answer, kind, inner.c_str()), "enter") > 0) {
        const char *text = nullptr;
        checked(sd_bus_message_read(answer, "s", &text), "read");
        checked(sd_bus_message_skip(answer, inner.c_str() + 1), "skip");
        checked(sd_bus_message_exit_container(answer), "exit");
        bytes += std::string_view(text).size() + BYTES_OF_STRUCT;
        ++seen;
    }
    if (seen != count) {
        throw std::runtime_error(std::to_string(seen) + " items instead of " +
                                 std::to_string(count));
    }
    return bytes;
}

std::size_t bytesOfItems(int count)
{
    return static_cast<std::size_t>(count) * (itemTopicFilter(count).size() + BYTES_OF_STRUCT);
}

Operation getItems(int count)
{
    return {"GetMQTTToEventConfig",
            [](sd_bus *bus, int) { return newCall(bus, LEGACY_INTERFACE, "GetMQTTToEventConfig"); },
            [count](sd_bus_message *answer) { return checkArray(answer, "(sbib)", count); }};
}

Operation setItems(int count)
{
    const auto make = [count](sd_bus *bus, int) {
        BusMessage message = newCall(bus, LEGACY_INTERFACE, "SetMQTTToEventConfig");
        checked(sd_bus_message_open_container(message.get(), 'a', "(sbib)"), "open");
        for (int item = 0; item < count; ++item) {
            checked(sd_bus_message_append(message.get(), "(sbib)", itemTopicFilter(item).c_str(), 0,
                                          1, 0),
                    "append");
        }
        checked(sd_bus_message_close_container(message.get()), "close");
        return message;
    };
    return {"SetMQTTToEventConfig", make, checkStatus, bytesOfItems(count), true};
}

Operation getFilters(int count)
{
    return {"GetEventToMQTTConfig",
            [](sd_bus *bus, int) { return newCall(bus, LEGACY_INTERFACE, "GetEventToMQTTConfig"); },
            [count](sd_bus_message *answer) {
                checked(sd_bus_message_skip(answer, "ssbbb"), "skip");
                return checkArray(answer, "(ssi)", count);
            }};
}

Operation setFilters(int count)
{
    const auto make = [count](sd_bus *bus, int) {
        BusMessage message = newCall(bus, LEGACY_INTERFACE, "SetEventToMQTTConfig");
        checked(sd_bus_message_append(message.get(), "ssbbb", "default", "", 1, 1, 0), "append");
        checked(sd_bus_message_open_container(message.get(), 'a', "(ssi)"), "open");
        for (int filter = 0; filter < count; ++filter) {
            checked(sd_bus_message_append(message.get(), "(ssi)", eventTopicFilter(filter).c_str(),
                                          "none", 0),
                    "append");
        }
        checked(sd_bus_message_close_container(message.get()), "close");
        return message;
    };
    return {"SetEventToMQTTConfig", make, checkStatus, bytesOfItems(count), true};
}

/** What the service asks the platform for an export, asked by the client itself. */
Operation defaultStatus()
{
    constexpr const char *NAME = "com.norq.MQTTMessagingService1";
    const auto make = [](sd_bus *bus, int) {
        BusMessage message;
        checked(sd_bus_message_new_method_call(bus, tovrel::OutParameter(message), NAME,
                                               "/com/norq/MQTTMessagingService1", NAME,
                                               "GetDefaultStatus"),
                "GetDefaultStatus");
        return message;
    };
    return {"  GetDefaultStatus alone", make,
            [](sd_bus_message *answer) { return checkArray(answer, "{ss}", 12); }};
}

std::string setProperty(const std::string &path, const std::string &property,
                        const std::string &value)
{
    return request("set", R"("path":[)" + path + R"(],"property":")" + property + R"(","data":{")" +
                              property + R"(":")" + value + R"("})");
}

std::vector<Operation> properties()
{
    constexpr const char *ITEM = R"("subscription","0")";
    constexpr const char *FILTER = R"("publication","eventFilter","0")";
    constexpr const char *SETTINGS = R"("publication")";
    const auto turn = [](const char *path, const char *property, const char *even,
                         const char *odd) {
        return
            [=](int number) { return setProperty(path, property, number % 2 == 0 ? even : odd); };
    };
    return {
        apiRequest(
            "get a property of an item",
            request("get", std::string(R"("path":[)") + ITEM + R"(],"property":"topicFilter")")),
        apiRequest(
            "get a property of an event filter",
            request("get", std::string(R"("path":[)") + FILTER + R"(],"property":"topicFilter")")),
        apiRequest("set a property of an item", turn(ITEM, "qos", "QOS_0", "QOS_1"), true),
        apiRequest("set a property of an event filter", turn(FILTER, "retain", "all", "none"),
                   true),
        apiRequest("set a publication setting", turn(SETTINGS, "customTopicPrefix", "a", "b"),
                   true),
    };
}

} // namespace

Operation ping()
{
    return {"Ping",
            [](sd_bus *bus, int) { return benchmarks::newPing(bus, benchmarks::SERVICE_NAME); },
            [](sd_bus_message *) { return std::size_t{0}; }};
}

Operation importing(const std::string &name, int count, bool replace, Items items)
{
    return apiRequest(name, importRequest(count, replace, items), items != Items::LAST_BAD,
                      items == Items::LAST_BAD ? BAD_ITEM : DONE);
}

std::vector<Operation> allOperations(int count)
{
    std::vector<Operation> operations{ping()};
    for (Operation &operation : properties()) {
        operations.push_back(std::move(operation));
    }
    operations.push_back(apiRequest("export", exportRequest()));
    operations.push_back(defaultStatus());
    operations.push_back(importing("import", count, true, Items::CONCRETE));
    operations.push_back(getItems(count));
    operations.push_back(setItems(count));
    operations.push_back(getFilters(count));
    operations.push_back(setFilters(count));
    return operations;
}

} // namespace configuration
