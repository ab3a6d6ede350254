#include "event/daemon/bus_arguments.h"

#include "event/core/bus_names.h"
#include "event/core/value.h"

#include <cmath>
#include <string_view>
#include <utility>

namespace norq::event {
namespace {

Status unreadable()
{
    return Status::failure(EVENT_ERROR_INVALID, "the message cannot be read");
}

template <typename Element>
Status readEach(sd_bus_message *message, const char *type, Element element)
{
    if (sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, type) < 0) {
        return unreadable();
    }
    while (sd_bus_message_at_end(message, 0) == 0) {
        if (Status read = element(); !read) {
            return read;
        }
    }
    return sd_bus_message_exit_container(message) < 0 ? unreadable() : Status();
}

/** Reads one basic value; the type that sd-bus writes for the letter is the caller's care. */
template <typename Basic>
bool readBasic(sd_bus_message *message, char letter, Basic &value)
{
    return sd_bus_message_read_basic(message, letter, &value) > 0;
}

/** Reads the content of a variant. */
std::optional<Value> readValue(sd_bus_message *message, std::string_view signature)
{
    if (signature == "x") {
        std::int64_t integer = 0;
        return readBasic(message, 'x', integer) ? std::optional(Value::ofInteger(integer))
                                                : std::nullopt;
    }
    if (signature == "b") {
        int boolean = 0; // sd-bus writes an int for a boolean
        return readBasic(message, 'b', boolean) ? std::optional(Value::ofBoolean(boolean != 0))
                                                : std::nullopt;
    }
    if (signature == "d") {
        double number = 0;
        return readBasic(message, 'd', number) && std::isfinite(number)
                   ? std::optional(Value::ofNumber(number))
                   : std::nullopt;
    }
    const char *text = nullptr;
    return signature == "s" && readBasic(message, 's', text) ? std::optional(Value::ofText(text))
                                                             : std::nullopt;
}

Status readFixedValue(sd_bus_message *message, std::optional<Value> &fixed)
{
    return readEach(message, "v", [&] {
        const char *signature = nullptr;
        if (fixed || sd_bus_message_peek_type(message, nullptr, &signature) <= 0 ||
            sd_bus_message_enter_container(message, SD_BUS_TYPE_VARIANT, signature) < 0) {
            return Status::failure(EVENT_ERROR_INVALID, "a key has more than one value");
        }
        fixed = readValue(message, signature);
        if (!fixed) {
            return Status::failure(EVENT_ERROR_INVALID, "a fixed value is of no known type");
        }
        return sd_bus_message_exit_container(message) < 0 ? unreadable() : Status();
    });
}

Status addKey(Declaration &declaration, const char *name, std::uint32_t type,
              std::optional<Value> fixed)
{
    if (!isType(type)) {
        return Status::failure(EVENT_ERROR_INVALID, "a key has no known type");
    }
    if (!fixed) {
        return declaration.addOpenKey(name, static_cast<event_value_type>(type));
    }
    if (fixed->type() != static_cast<event_value_type>(type)) {
        return Status::failure(EVENT_ERROR_TYPE, "a fixed value is not of its key's type");
    }
    return declaration.addFixedKey(name, std::move(*fixed));
}

Status readKey(sd_bus_message *message, Declaration &declaration)
{
    const char *name = nullptr;
    std::uint32_t type = 0;
    if (sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT, KEY_FIELDS) < 0 ||
        sd_bus_message_read(message, "su", &name, &type) < 0) {
        return unreadable();
    }
    std::optional<Value> fixed;
    if (Status read = readFixedValue(message, fixed); !read) {
        return read;
    }
    if (Status added = addKey(declaration, name, type, std::move(fixed)); !added) {
        return added;
    }
    const char *nameSpace = nullptr;
    const char *niceName = nullptr;
    const char *valueName = nullptr;
    if (sd_bus_message_read(message, "sss", &nameSpace, &niceName, &valueName) < 0) {
        return unreadable();
    }
    if (Status set = declaration.setNameSpace(name, nameSpace); !set) {
        return set;
    }
    if (Status set = declaration.setNiceNames(name, niceName, valueName); !set) {
        return set;
    }
    Status tags = readEach(message, "s", [&] {
        const char *tag = nullptr;
        return readBasic(message, 's', tag) ? declaration.addTag(name, tag) : unreadable();
    });
    return tags && sd_bus_message_exit_container(message) < 0 ? unreadable() : tags;
}

/** Reads an array of pairs of key and text into conditions of one kind. */
Status readPairs(sd_bus_message *message, Expression &expression,
                 Status (Expression::*add)(std::string_view, std::string_view))
{
    return readEach(message, "(ss)", [&] {
        const char *key = nullptr;
        const char *text = nullptr;
        return sd_bus_message_read(message, "(ss)", &key, &text) < 0 ? unreadable()
                                                                     : (expression.*add)(key, text);
    });
}

} // namespace

Status readDeclare(sd_bus_message *message, std::uint32_t &id,
                   std::optional<Declaration> &declaration)
{
    std::uint32_t flags = 0;
    const char *property = nullptr;
    if (sd_bus_message_read(message, "uus", &id, &flags, &property) < 0) {
        return unreadable();
    }
    if (!Declaration::areFlags(flags)) {
        return Status::failure(EVENT_ERROR_INVALID, "there are unknown flags");
    }
    Declaration &target = declaration.emplace(flags);
    Status keys = readEach(message, KEYS_SIGNATURE + 1, [&] { return readKey(message, target); });
    if (!keys || *property == '\0') {
        return keys;
    }
    return target.setProperty(property);
}

Status readExpression(sd_bus_message *message, Expression &expression)
{
    if (Status values = readPairs(message, expression, &Expression::addKeyValue); !values) {
        return values;
    }
    if (Status spaces = readPairs(message, expression, &Expression::setNameSpace); !spaces) {
        return spaces;
    }
    return readEach(message, "s", [&] {
        const char *key = nullptr;
        return readBasic(message, 's', key) ? expression.addAbsent(key) : unreadable();
    });
}

Status readSubscribe(sd_bus_message *message, std::uint32_t &id, Expression &expression)
{
    return sd_bus_message_read(message, "u", &id) < 0 ? unreadable()
                                                      : readExpression(message, expression);
}

} // namespace norq::event
