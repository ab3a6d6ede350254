/** The conditions of a subscription. */
#pragma once

#include "event/core/status.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace norq::event {

/** One condition on one key. */
struct Condition {
    enum class Kind { KEY_VALUE, NAME_SPACE, ABSENT };

    Kind kind;
    std::string key;
    std::string text; // the value or the namespace; empty for an absent key
};

/** Conditions that an event must meet, all of them, in the order of their addition. */
class Expression {
public:
    /** The key has this value in text form. A second one for a key is refused. */
    Status addKeyValue(std::string_view key, std::string_view value);
    /** The key is in this namespace; empty means in none. Replaces a former one for the key. */
    Status setNameSpace(std::string_view key, std::string_view nameSpace);
    /** There is no such key. */
    Status addAbsent(std::string_view key);

    [[nodiscard]] const std::vector<Condition> &conditions() const { return all; }
    /** Memory it takes, roughly: what the service counts against its limits. */
    [[nodiscard]] std::size_t memorySize() const;
    /** The expression as XML on one line. */
    [[nodiscard]] std::string xml() const;

private:
    Status add(Condition::Kind kind, std::string_view key, std::string_view text);
    Condition *find(Condition::Kind kind, std::string_view key);

    std::vector<Condition> all;
    std::size_t textBytes = 0;
};

} // namespace norq::event
