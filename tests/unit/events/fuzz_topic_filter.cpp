/** Feeds texts to the parser of event topic filters and checks what must hold for any of them. */
#include "events/event_filter_config.h"
#include "support/fuzz.h"

#include <algorithm>
#include <string>

using test_support::require;

namespace {

/** A filter with the same parts, every namespace written out. */
std::string writtenOut(const tovrel::ParsedTopicFilter &parsed)
{
    std::string text;
    for (const auto &[nameSpace, name] : parsed.segments) {
        text += (text.empty() ? "" : "/") + nameSpace + ":" + name;
    }
    return text + (parsed.matchSubtopics ? "//." : "");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(data, data + size);
    const auto parsed = tovrel::parseTopicFilter(text);
    const auto slashes = std::count(text.begin(), text.end(), '/');
    require(parsed.segments.size() <= static_cast<std::size_t>(slashes) + 1,
            "no more segments than slashes allow");
    require(parsed.matchSubtopics == text.ends_with("//."), "the end decides about subtopics");
    for (const auto &[nameSpace, name] : parsed.segments) {
        require(nameSpace.find_first_of(":/") == std::string::npos, "a namespace is one word");
        require(name.find_first_of(":/") == std::string::npos, "a name is one word");
    }
    const auto again = tovrel::parseTopicFilter(writtenOut(parsed));
    require(again.segments == parsed.segments && again.matchSubtopics == parsed.matchSubtopics,
            "what was parsed is parsed the same when it is written out");

    tovrel::EventFilterConfig filter(text.c_str(), 0, "none");
    require(filter.getTopicFilter() == text.c_str(), "the text is kept");
    const auto count = filter.getTopicSegments().size();
    filter.setTopicFilter(text);
    require(filter.getTopicSegments().size() ==
                std::min(count + parsed.segments.size(), tovrel::MOST_TOPIC_SEGMENTS + 1),
            "a changed text adds its segments, within the limit");
    return 0;
}
