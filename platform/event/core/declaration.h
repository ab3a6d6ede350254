/** The description of events: which keys they have, and what of them is fixed. */
#pragma once

#include "event/core/status.h"
#include "event/core/value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace norq::event {

/** One key of a declaration. Empty texts mean none. */
struct DeclaredKey {
    std::string name;
    event_value_type type = EVENT_VALUE_STRING;
    std::optional<Value> fixed;
    std::uint32_t openPosition = 0; // of an open key: how many open keys stand before it
    std::string nameSpace;
    std::string niceName;
    std::string valueNiceName;
    std::vector<std::string> tags;
};

/**
 * A declaration. Built key by key with every step checked, whoever asks for it: a caller of the
 * library, a message on the bus or a frame on the socket; immutable once it is shared.
 */
class Declaration {
public:
    explicit Declaration(unsigned int flags = 0) : declarationFlags(flags) {}

    /** Whether a number consists of known flags only. */
    static bool areFlags(std::uint64_t flags);

    Status addOpenKey(std::string_view name, event_value_type type);
    Status addFixedKey(std::string_view name, Value value);
    Status setNameSpace(std::string_view key, std::string_view nameSpace);
    Status setNiceNames(std::string_view key, std::string_view name, std::string_view valueName);
    /** A tag that the key has already is no failure and changes nothing. */
    Status addTag(std::string_view key, std::string_view tag);
    /** Marks the state key; a second one is refused. */
    Status setProperty(std::string_view key);
    /** Whether it may be declared: it has a key, and its texts leave room for an event. */
    [[nodiscard]] Status checkComplete() const;

    [[nodiscard]] unsigned int flags() const { return declarationFlags; }
    [[nodiscard]] const std::vector<DeclaredKey> &keys() const { return declaredKeys; }
    [[nodiscard]] bool isProperty() const { return propertyKey.has_value(); }
    /** Index of the state key. */
    [[nodiscard]] std::optional<std::size_t> property() const { return propertyKey; }
    /** Index of a key. */
    [[nodiscard]] std::optional<std::size_t> find(std::string_view name) const;
    /** Indexes of the keys that each event sets, in order. */
    [[nodiscard]] const std::vector<std::size_t> &openKeys() const { return open; }
    /** Sum of all texts and fixed values: what every event of it counts before its own values. */
    [[nodiscard]] std::size_t textSize() const { return textBytes; }
    /** Memory it takes, roughly: what the service counts against its limits. */
    [[nodiscard]] std::size_t memorySize() const;

private:
    Status addKey(std::string_view name, DeclaredKey key);
    DeclaredKey *keyNamed(std::string_view name);
    void replaceText(std::string &text, std::string_view replacement);

    unsigned int declarationFlags;
    std::vector<DeclaredKey> declaredKeys;
    std::vector<std::size_t> open;
    std::unordered_map<std::string, std::size_t> indexes;
    std::optional<std::size_t> propertyKey;
    std::size_t textBytes = 0;
    std::size_t tagCount = 0;
};

/** Checks a key, namespace, tag, nice name or client name: length and encoding. */
Status checkName(std::string_view name, const char *what);

} // namespace norq::event
