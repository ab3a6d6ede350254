#include "event/core/value.h"

#include <array>
#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

namespace norq::event {
namespace {

/** Longest text of a number: a double in its shortest form has 24 characters. */
constexpr std::size_t NUMBER_LENGTH = 32;

template <typename Number>
std::string textOf(Number number)
{
    std::array<char, NUMBER_LENGTH> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    return {buffer.data(), result.ptr};
}

template <typename Number>
std::optional<Number> numberOf(std::string_view text)
{
    Number number{};
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return number;
}

Status textFromApi(const char *text, std::optional<Value> &result)
{
    if (text == nullptr) {
        return Status::failure(EVENT_ERROR_INVALID, "the text value is NULL");
    }
    const std::string_view given = text;
    if (given.size() > EVENT_MAX_SIZE) {
        return Status::failure(EVENT_ERROR_INVALID, "the text value is too long");
    }
    if (!isCleanText(given)) {
        return Status::failure(EVENT_ERROR_INVALID, "the text value is not valid UTF-8");
    }
    result = Value::ofText(std::string(given));
    return {};
}

} // namespace

Value::Value(event_value_type type, std::int64_t scalarValue, std::string text)
    : valueType(type), scalar(scalarValue), textForm(std::move(text))
{
}

Value Value::ofInteger(std::int64_t integer)
{
    return {EVENT_VALUE_INT, integer, textOf(integer)};
}

Value Value::ofBoolean(bool boolean)
{
    return {EVENT_VALUE_BOOLEAN, boolean ? 1 : 0, boolean ? "1" : "0"};
}

Value Value::ofNumber(double number)
{
    return {EVENT_VALUE_DOUBLE, std::bit_cast<std::int64_t>(number), textOf(number)};
}

Value Value::ofText(std::string text)
{
    return {EVENT_VALUE_STRING, 0, std::move(text)};
}

Status Value::fromApi(const event_value_t &given, std::optional<Value> &result)
{
    switch (given.type) {
    case EVENT_VALUE_INT:
        result = ofInteger(given.as.integer);
        return {};
    case EVENT_VALUE_BOOLEAN:
        result = ofBoolean(given.as.boolean != 0);
        return {};
    case EVENT_VALUE_DOUBLE:
        if (!std::isfinite(given.as.number)) {
            return Status::failure(EVENT_ERROR_INVALID, "the number is not finite");
        }
        result = ofNumber(given.as.number);
        return {};
    case EVENT_VALUE_STRING:
        return textFromApi(given.as.string, result);
    }
    return Status::failure(EVENT_ERROR_INVALID, "the value has no known type");
}

std::optional<Value> Value::parse(event_value_type type, std::string_view text)
{
    std::optional<Value> value;
    switch (type) {
    case EVENT_VALUE_INT:
        if (const auto integer = numberOf<std::int64_t>(text)) {
            value = ofInteger(*integer);
        }
        break;
    case EVENT_VALUE_BOOLEAN:
        value = ofBoolean(text == "1");
        break;
    case EVENT_VALUE_DOUBLE:
        if (const auto number = numberOf<double>(text); number && std::isfinite(*number)) {
            value = ofNumber(*number);
        }
        break;
    case EVENT_VALUE_STRING:
        value = ofText(std::string(text));
        break;
    }
    if (value && value->text() != text) { // another spelling of the same number is another text
        value.reset();
    }
    return value;
}

std::size_t Value::size() const
{
    return sizeOfType(valueType) + (valueType == EVENT_VALUE_STRING ? textForm.size() : 0);
}

std::size_t sizeOfType(event_value_type type)
{
    switch (type) {
    case EVENT_VALUE_INT:
    case EVENT_VALUE_DOUBLE:
        return sizeof(std::int64_t);
    case EVENT_VALUE_BOOLEAN:
        return 1;
    case EVENT_VALUE_STRING:
        break;
    }
    return 0;
}

bool isType(std::uint64_t number)
{
    return number >= EVENT_VALUE_INT && number <= EVENT_VALUE_STRING;
}

const char *nameOfType(event_value_type type)
{
    switch (type) {
    case EVENT_VALUE_INT:
        return "int";
    case EVENT_VALUE_BOOLEAN:
        return "boolean";
    case EVENT_VALUE_DOUBLE:
        return "double";
    case EVENT_VALUE_STRING:
        break;
    }
    return "string";
}

bool isCleanText(std::string_view text)
{
    // with an explicit length GLib takes a NUL for an error
    return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

} // namespace norq::event
