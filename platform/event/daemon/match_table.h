/** Which subscriptions get the events of one declaration. */
#pragma once

#include "event/core/declaration.h"
#include "event/core/expression.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace norq::event {

struct Subscription;

/** A condition that only the event itself can decide: an open value has these bytes. */
struct OpenCondition {
    std::uint32_t position; // DeclaredKey::openPosition
    std::string bytes;      // as bytesOf() gives them
};

/**
 * What is left of an expression for the events of a declaration: keys, namespaces and fixed values
 * are the same for all of them. Nothing when no event can match.
 */
std::optional<std::vector<OpenCondition>> reduce(const Expression &expression,
                                                 const Declaration &declaration);

/**
 * The subscriptions that the events of one declaration can match. What the declaration decides is
 * decided when a subscription is added; a subscription that depends on an open value is found by
 * that value, so that an event costs nothing for all those that want another one.
 */
class MatchTable {
public:
    /** Adds the subscription if it can match at all. */
    void add(Subscription &subscription, const Expression &expression,
             const Declaration &declaration);
    void clear();
    /** How many subscriptions it holds. */
    [[nodiscard]] std::size_t size() const { return count; }

    /** Calls `found` once for each subscription that an event with these open values matches. */
    template <typename Found>
    void match(const std::vector<std::string_view> &values, Found found) const
    {
        for (Subscription *subscription : always) {
            found(*subscription);
        }
        for (const auto &[position, byBytes] : byValue) {
            const auto candidates = byBytes.find(values[position]);
            if (candidates == byBytes.end()) {
                continue;
            }
            for (const Candidate &candidate : candidates->second) {
                if (candidate.matches(values)) {
                    found(*candidate.subscription);
                }
            }
        }
    }

private:
    struct Candidate {
        Subscription *subscription;
        std::vector<OpenCondition> conditions; // beyond the one that it is found by

        [[nodiscard]] bool matches(const std::vector<std::string_view> &values) const;
    };
    struct BytesHash {
        using is_transparent = void; // NOLINT(readability-identifier-naming): the standard's name
        std::size_t operator()(std::string_view bytes) const
        {
            return std::hash<std::string_view>()(bytes);
        }
    };
    using Candidates =
        std::unordered_map<std::string, std::vector<Candidate>, BytesHash, std::equal_to<>>;

    Candidates &candidatesAt(std::uint32_t position);

    std::vector<Subscription *> always;
    std::vector<std::pair<std::uint32_t, Candidates>> byValue;
    std::size_t count = 0;
};

} // namespace norq::event
