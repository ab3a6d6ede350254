/** The topic of an event as one text, and which of its keys the topic is made of. */
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace norq::json {

/** The names under which a document shows the two namespaces that are known. */
struct NamespaceNames {
    std::string_view onvif;
    std::string_view norq;

    /** The name for a namespace of an event; any other than the two keeps its own. */
    std::string_view of(std::string_view own) const
    {
        if (own == "tns1") {
            return onvif;
        }
        return own == "tnsnorq" ? norq : own;
    }
};

inline constexpr std::string_view TOPIC_KEY_PREFIX = "topic";

/** The level that a key names: 3 for "topic3"; nothing for "topic", "topic03" or "mqtt-topic". */
inline std::optional<unsigned int> topicLevel(std::string_view key)
{
    if (!key.starts_with(TOPIC_KEY_PREFIX)) {
        return std::nullopt;
    }
    const std::string_view digits = key.substr(TOPIC_KEY_PREFIX.size());
    unsigned int level = 0;
    const auto [end, failure] =
        std::from_chars(digits.data(), digits.data() + digits.size(), level);
    const bool canonical = digits.size() == 1 || !digits.starts_with('0');
    if (failure != std::errc() || end != digits.data() + digits.size() || !canonical) {
        return std::nullopt;
    }
    return level;
}

/**
 * A topic as text, "tns1:Device/tnsnorq:Beta/Gamma": levels joined by "/", the namespace and ":"
 * before a level whose namespace differs from that of the level before it. A level without a
 * namespace starts with a bare ":" where it would otherwise read as being in the namespace before
 * it.
 */
class TopicText {
public:
    /** Appends a level; an empty `nameSpace` means none. */
    void add(std::string_view nameSpace, std::string_view name)
    {
        if (levels > 0) {
            text += '/';
        }
        if (nameSpace != current) {
            text.append(nameSpace).append(1, ':');
            current = nameSpace;
        }
        text += name;
        ++levels;
    }

    [[nodiscard]] const std::string &get() const { return text; }

    /** Whether a key of the event is one of the levels in the text. */
    [[nodiscard]] bool contains(const char *key) const
    {
        const auto level = topicLevel(key);
        return level && *level < levels;
    }

private:
    std::string text;
    std::string current;
    unsigned int levels = 0;
};

} // namespace norq::json
