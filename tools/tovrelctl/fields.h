/** The words of the command line and the fields of the configuration's document. */
#pragma once

#include "tovrelctl/json.h"

#include <array>
#include <span>
#include <string>
#include <string_view>

namespace tovrelctl {

/** What a field holds. */
enum class Kind { TEXT, TRUTH, CHOICE };

/** One field of the document. */
struct Field {
    const char *name;
    Kind kind;
    /** The texts of a CHOICE, ended by NULL. */
    std::array<const char *, 4> choices{};
};

using Fields = std::span<const Field>;

/** The settings of "publication", in the order of the document. */
inline constexpr std::array<Field, 5> SETTINGS{{
    {"topicPrefix", Kind::CHOICE, {"default", "custom", "none"}},
    {"customTopicPrefix", Kind::TEXT},
    {"appendEventTopic", Kind::TRUTH},
    {"includeTopicNamespaces", Kind::TRUTH},
    {"includeSerialNumberInPayload", Kind::TRUTH},
}};

/** The fields of an item of "subscription", without its id. */
inline constexpr std::array<Field, 4> SUBSCRIPTION_FIELDS{{
    {"topicFilter", Kind::TEXT},
    {"qos", Kind::CHOICE, {"QOS_0", "QOS_1", "QOS_2"}},
    {"isStateData", Kind::TRUTH},
    {"useDeviceTopicPrefix", Kind::TRUTH},
}};

/** The fields of an item of "eventFilter", without its id. */
inline constexpr std::array<Field, 3> FILTER_FIELDS{{
    {"topicFilter", Kind::TEXT},
    {"qos", Kind::CHOICE, {"QOS_0", "QOS_1", "QOS_2"}},
    {"retain", Kind::CHOICE, {"none", "property", "all"}},
}};

/** The key of an item. */
inline constexpr Field ID{"id", Kind::TEXT};

/** Can only be read; stands beside the settings where they are shown. */
inline constexpr Field DEVICE_TOPIC_PREFIX{"deviceTopicPrefix", Kind::TEXT};

/** The field of a name; null when there is none. */
const Field *findField(Fields fields, std::string_view name);

/** The setting of a name, to change it; throws UsageError with all names for an unknown one. */
const Field &settingOf(const std::string &name);

/** The setting of a name, or what can only be read; throws UsageError as settingOf(). */
const Field &readableOf(const std::string &name);

/**
 * The value of a field as it is written on the command line, where the person knows it by `name`.
 * Throws UsageError.
 */
Json parseValue(const Field &field, const std::string &name, const std::string &text);

/** "QOS_1" of "1". Throws UsageError. */
Json parseQos(const std::string &text);

/** Whether a value may stand in a field of the document. */
bool fits(const Field &field, const json_t *value);

/** What a field may hold, for people: "one of default, custom, none". */
std::string expectation(const Field &field);

} // namespace tovrelctl
