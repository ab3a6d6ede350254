#include "event/tool/topic.h"

#include "event/json_topic.h"
#include "event/tool/failure.h"

#include <utility>

namespace norq::tool {

namespace {

constexpr std::string_view SUBTOPICS = "//.";

TopicLevel parseLevel(std::string_view text, const std::optional<std::string> &inherited)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        return {inherited, std::string(text)};
    }
    return {std::string(text.substr(0, colon)), std::string(text.substr(colon + 1))};
}

} // namespace

std::vector<TopicLevel> parseTopic(std::string_view text)
{
    std::vector<TopicLevel> levels;
    std::optional<std::string> nameSpace;
    std::string_view rest = text;
    for (bool more = true; more;) {
        const std::size_t slash = rest.find('/');
        TopicLevel level = parseLevel(rest.substr(0, slash), nameSpace);
        if (level.name.empty()) {
            throw UsageError("topic '" + std::string(text) + "': a level has no name");
        }
        nameSpace = level.nameSpace;
        levels.push_back(std::move(level));
        more = slash != std::string_view::npos;
        rest.remove_prefix(more ? slash + 1 : rest.size());
    }
    return levels;
}

TopicFilter parseTopicFilter(std::string_view text)
{
    TopicFilter filter;
    filter.withSubtopics = text.ends_with(SUBTOPICS);
    if (filter.withSubtopics) {
        text.remove_suffix(SUBTOPICS.size());
    }
    if (!text.empty() || !filter.withSubtopics) {
        filter.levels = parseTopic(text);
    }
    return filter;
}

std::string topicKey(std::size_t level)
{
    return std::string(json::TOPIC_KEY_PREFIX) + std::to_string(level);
}

} // namespace norq::tool
