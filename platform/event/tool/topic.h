/** Topics and topic filters as people write them: "tns1:Device/tnsnorq:Beta/Gamma". */
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norq::tool {

/** One level of a topic, the value of a key "topic0", "topic1", ... */
struct TopicLevel {
    std::optional<std::string> nameSpace; /**< empty text: the level has no namespace */
    std::string name;

    bool operator==(const TopicLevel &) const = default;
};

/** A topic to watch. */
struct TopicFilter {
    std::vector<TopicLevel> levels;
    bool withSubtopics = false; /**< the filter ended in "//." */

    bool operator==(const TopicFilter &) const = default;
};

/**
 * Levels separated by "/". A level "NS:NAME" names its namespace; a level without ":" is in the
 * namespace of the level before it, and a first one without ":" leaves the namespace open.
 * Throws UsageError for an empty topic and for a level without a name.
 */
std::vector<TopicLevel> parseTopic(std::string_view text);

/** A topic that may end in "//." to select everything below it too; "//." alone is every topic. */
TopicFilter parseTopicFilter(std::string_view text);

/** The key that holds a level: "topic0" for 0. */
std::string topicKey(std::size_t level);

} // namespace norq::tool
