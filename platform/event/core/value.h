/** The typed value of a key. */
#pragma once

#include "event/core/status.h"

#include <norq/event_types.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace norq::event {

/**
 * A value with its text form. Two values of one type are the same exactly when their texts are,
 * which is what conditions of subscriptions rely on.
 */
class Value {
public:
    static Value ofInteger(std::int64_t integer);
    static Value ofBoolean(bool boolean);
    /** `number` must be finite. */
    static Value ofNumber(double number);
    /** `text` must be valid UTF-8 without NUL. */
    static Value ofText(std::string text);

    /** Checks and takes over what a caller of the library passes. */
    static Status fromApi(const event_value_t &given, std::optional<Value> &result);
    /** The value of this type whose text form is exactly `text`; nothing when there is none. */
    static std::optional<Value> parse(event_value_type type, std::string_view text);

    [[nodiscard]] event_value_type type() const { return valueType; }
    [[nodiscard]] const std::string &text() const { return textForm; }
    [[nodiscard]] std::int64_t integer() const { return scalar; }
    [[nodiscard]] bool boolean() const { return scalar != 0; }
    [[nodiscard]] double number() const { return std::bit_cast<double>(scalar); }
    /** Bytes that the value counts towards EVENT_MAX_SIZE. */
    [[nodiscard]] std::size_t size() const;

    friend bool operator==(const Value &left, const Value &right)
    {
        return left.valueType == right.valueType && left.textForm == right.textForm;
    }

private:
    Value(event_value_type type, std::int64_t scalarValue, std::string text);

    event_value_type valueType;
    std::int64_t scalar; // the bits of a double; unused for a text
    std::string textForm;
};

/** Bytes that a value of this type counts towards EVENT_MAX_SIZE, without those of a text. */
std::size_t sizeOfType(event_value_type type);

/** Whether a number names a type. */
bool isType(std::uint64_t number);

/** Name of a type for people and listings: "int", "boolean", "double", "string". */
const char *nameOfType(event_value_type type);

/** Whether a text is valid UTF-8 and has no NUL in it. */
bool isCleanText(std::string_view text);

} // namespace norq::event
