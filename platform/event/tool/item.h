/** Keys, types and values of events as people write them: "KEY[@NS][:TYPE]=VALUE". */
#pragma once

#include <norq/event_types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace norq::tool {

/** A value that owns its text. */
class Value {
public:
    /**
     * Reads a value of a type: decimal integers of 64 bits, finite decimal numbers, "true",
     * "false", "1" and "0" for booleans, any text for strings. Throws UsageError, naming `key`.
     */
    static Value parse(std::string_view key, event_value_type type, const std::string &text);

    /** The value for the event library; a string stays valid as long as this object. */
    event_value_t get() const;

private:
    using Content = std::variant<std::int64_t, bool, double, std::string>;
    explicit Value(Content initial) : content(std::move(initial)) {}

    Content content;
};

/** A key of an event to send. */
struct Item {
    std::string key;
    std::string nameSpace; /**< empty: none */
    event_value_type type = EVENT_VALUE_STRING;
    std::optional<Value> value; /**< none: "=VALUE" was left out */
    bool fixed = false;         /**< the value is part of the declaration */
};

/**
 * Reads "KEY[@NS][:TYPE][=VALUE]". TYPE is int, bool, double or string, which is the default.
 * A backslash takes the special meaning from the character after it, up to the "=".
 * Throws UsageError.
 */
Item parseItem(std::string_view text);

/**
 * Reads "KEY=TEXT" with the same backslashes in KEY; `what` names the form for the error.
 * Throws UsageError when the "=" is missing.
 */
std::pair<std::string, std::string> parsePair(std::string_view text, std::string_view what);

} // namespace norq::tool
