#include "event/tool/item.h"

#include "event/tool/failure.h"

#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

namespace norq::tool {

namespace {

using namespace std::string_literals;

struct TypeName {
    std::string_view name;
    event_value_type type;
};

constexpr std::array TYPE_NAMES{
    TypeName{"int", EVENT_VALUE_INT},
    TypeName{"bool", EVENT_VALUE_BOOLEAN},
    TypeName{"double", EVENT_VALUE_DOUBLE},
    TypeName{"string", EVENT_VALUE_STRING},
};

/** Position of the first or last `wanted` without a backslash before it. */
std::size_t findPlain(std::string_view text, char wanted, bool last)
{
    std::size_t found = std::string_view::npos;
    for (std::size_t position = 0; position < text.size(); ++position) {
        if (text[position] == '\\') {
            ++position;
        } else if (text[position] == wanted) {
            found = position;
            if (!last) {
                break;
            }
        }
    }
    return found;
}

std::string withoutBackslashes(std::string_view text)
{
    std::string plain;
    for (std::size_t position = 0; position < text.size(); ++position) {
        if (text[position] == '\\' && position + 1 < text.size()) {
            ++position;
        }
        plain += text[position];
    }
    return plain;
}

/** Cuts the part behind the last plain `mark` off; nothing when there is no such mark. */
std::optional<std::string_view> cutOff(std::string_view &text, char mark)
{
    const std::size_t position = findPlain(text, mark, true);
    if (position == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view part = text.substr(position + 1);
    text = text.substr(0, position);
    return part;
}

event_value_type typeNamed(std::string_view name, std::string_view item)
{
    for (const TypeName &known : TYPE_NAMES) {
        if (known.name == name) {
            return known.type;
        }
    }
    throw UsageError("'"s.append(item) + "': unknown type '" + std::string(name) +
                     "', expected int, bool, double or string");
}

template <typename Number>
std::optional<Number> number(const std::string &text)
{
    Number result{};
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, result);
    return failure == std::errc() && end == last ? std::optional(result) : std::nullopt;
}

UsageError wrongValue(std::string_view key, const std::string &text, const char *expected)
{
    return UsageError{"key '"s.append(key) + "': '" + text + "' is not " + expected};
}

} // namespace

Value Value::parse(std::string_view key, event_value_type type, const std::string &text)
{
    switch (type) {
    case EVENT_VALUE_INT:
        if (const auto integer = number<std::int64_t>(text)) {
            return Value(*integer);
        }
        throw wrongValue(key, text, "an integer of 64 bits");
    case EVENT_VALUE_BOOLEAN:
        if (text == "true" || text == "1") {
            return Value(true);
        }
        if (text == "false" || text == "0") {
            return Value(false);
        }
        throw wrongValue(key, text, "a boolean (true, false, 1 or 0)");
    case EVENT_VALUE_DOUBLE:
        if (const auto real = number<double>(text); real && std::isfinite(*real)) {
            return Value(*real);
        }
        throw wrongValue(key, text, "a finite number");
    case EVENT_VALUE_STRING:
        break;
    }
    return Value(text);
}

event_value_t Value::get() const
{
    if (const auto *integer = std::get_if<std::int64_t>(&content)) {
        return event_value_int(*integer);
    }
    if (const auto *boolean = std::get_if<bool>(&content)) {
        return event_value_boolean(*boolean ? 1 : 0);
    }
    if (const auto *real = std::get_if<double>(&content)) {
        return event_value_double(*real);
    }
    return event_value_string(std::get<std::string>(content).c_str());
}

Item parseItem(std::string_view text)
{
    const std::size_t equals = findPlain(text, '=', false);
    std::string_view left = text.substr(0, equals);
    Item item;
    if (const auto type = cutOff(left, ':')) {
        item.type = typeNamed(*type, text);
    }
    if (const auto nameSpace = cutOff(left, '@')) {
        item.nameSpace = withoutBackslashes(*nameSpace);
    }
    item.key = withoutBackslashes(left);
    if (equals != std::string_view::npos) {
        item.value = Value::parse(item.key, item.type, std::string(text.substr(equals + 1)));
    }
    return item;
}

std::pair<std::string, std::string> parsePair(std::string_view text, std::string_view what)
{
    const std::size_t equals = findPlain(text, '=', false);
    if (equals == std::string_view::npos) {
        throw UsageError("'"s.append(text) + "': expected " + std::string(what));
    }
    return {withoutBackslashes(text.substr(0, equals)), std::string(text.substr(equals + 1))};
}

} // namespace norq::tool
