#include "event/client/service_calls.h"

#include "event/core/bus_names.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace norq::event {
namespace {

constexpr std::uint64_t TIMEOUT_US = 5'000'000;

/** Building a message fails only when memory is exhausted or by a defect of this library. */
void check(int result)
{
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), "building a bus message");
    }
}

void appendFixedValue(sd_bus_message *message, const DeclaredKey &key)
{
    check(sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "v"));
    if (key.fixed) {
        const Value &value = *key.fixed;
        switch (value.type()) {
        case EVENT_VALUE_INT:
            check(sd_bus_message_append(message, "v", "x", value.integer()));
            break;
        case EVENT_VALUE_BOOLEAN:
            check(sd_bus_message_append(message, "v", "b", static_cast<int>(value.boolean())));
            break;
        case EVENT_VALUE_DOUBLE:
            check(sd_bus_message_append(message, "v", "d", value.number()));
            break;
        case EVENT_VALUE_STRING:
            check(sd_bus_message_append(message, "v", "s", value.text().c_str()));
            break;
        }
    }
    check(sd_bus_message_close_container(message));
}

void appendKey(sd_bus_message *message, const DeclaredKey &key)
{
    check(sd_bus_message_open_container(message, SD_BUS_TYPE_STRUCT, KEY_FIELDS));
    check(sd_bus_message_append(message, "su", key.name.c_str(),
                                static_cast<std::uint32_t>(key.type)));
    appendFixedValue(message, key);
    check(sd_bus_message_append(message, "sss", key.nameSpace.c_str(), key.niceName.c_str(),
                                key.valueNiceName.c_str()));
    check(sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "s"));
    for (const std::string &tag : key.tags) {
        check(sd_bus_message_append(message, "s", tag.c_str()));
    }
    check(sd_bus_message_close_container(message));
    check(sd_bus_message_close_container(message));
}

/** Appends the conditions of one kind: pairs of key and text, or keys alone. */
void appendConditions(sd_bus_message *message, const Expression &expression, Condition::Kind kind)
{
    const bool pairs = kind != Condition::Kind::ABSENT;
    check(sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, pairs ? "(ss)" : "s"));
    for (const Condition &condition : expression.conditions()) {
        if (condition.kind != kind) {
            continue;
        }
        check(pairs ? sd_bus_message_append(message, "(ss)", condition.key.c_str(),
                                            condition.text.c_str())
                    : sd_bus_message_append(message, "s", condition.key.c_str()));
    }
    check(sd_bus_message_close_container(message));
}

bool isRefusal(const BusError &error)
{
    return sd_bus_error_has_names(error.get(), ERROR_INVALID, ERROR_LIMIT,
                                  SD_BUS_ERROR_INVALID_ARGS, SD_BUS_ERROR_ACCESS_DENIED,
                                  SD_BUS_ERROR_LIMITS_EXCEEDED) != 0;
}

} // namespace

ServiceCalls::ServiceCalls(sd_bus *connection, std::string uniqueName)
    : bus(connection), service(std::move(uniqueName))
{
}

CallResult ServiceCalls::declare(std::uint32_t id, const Declaration &declaration)
{
    const BusMessage message = newCall("Declare");
    const auto property = declaration.property();
    check(sd_bus_message_append(message.get(), "uus", id, declaration.flags(),
                                property ? declaration.keys()[*property].name.c_str() : ""));
    check(sd_bus_message_open_container(message.get(), SD_BUS_TYPE_ARRAY, KEYS_SIGNATURE + 1));
    for (const DeclaredKey &key : declaration.keys()) {
        appendKey(message.get(), key);
    }
    check(sd_bus_message_close_container(message.get()));
    return call(message);
}

CallResult ServiceCalls::undeclare(std::uint32_t id)
{
    return callWithId("Undeclare", id);
}

CallResult ServiceCalls::subscribe(std::uint32_t id, const Expression &expression)
{
    const BusMessage message = newCall("Subscribe");
    check(sd_bus_message_append(message.get(), "u", id));
    appendConditions(message.get(), expression, Condition::Kind::KEY_VALUE);
    appendConditions(message.get(), expression, Condition::Kind::NAME_SPACE);
    appendConditions(message.get(), expression, Condition::Kind::ABSENT);
    return call(message);
}

CallResult ServiceCalls::unsubscribe(std::uint32_t id)
{
    return callWithId("Unsubscribe", id);
}

BusMessage ServiceCalls::newCall(const char *method)
{
    BusMessage message;
    check(sd_bus_message_new_method_call(bus, Out(message), service.c_str(), BUS_PATH,
                                         BUS_INTERFACE, method));
    return message;
}

CallResult ServiceCalls::callWithId(const char *method, std::uint32_t id)
{
    const BusMessage message = newCall(method);
    check(sd_bus_message_append(message.get(), "u", id));
    return call(message);
}

CallResult ServiceCalls::call(const BusMessage &message)
{
    BusError error;
    if (sd_bus_call(bus, message.get(), TIMEOUT_US, error.out(), nullptr) >= 0) {
        return {CallOutcome::DONE, {}};
    }
    return {isRefusal(error) ? CallOutcome::REFUSED : CallOutcome::LOST, error.text()};
}

} // namespace norq::event
