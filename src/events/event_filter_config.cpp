#include "events/event_filter_config.h"

#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

namespace tovrel {

namespace {

constexpr std::string_view SUBTOPICS_SUFFIX = "//.";

/** Texts by the policy's number; built on first use and shared. */
const std::array<std::string, 3> &retainTexts()
{
    static const std::array<std::string, 3> texts{"none", "property", "all"};
    return texts;
}

std::optional<RetainPolicy> parseRetainPolicy(std::string_view text)
{
    const auto &texts = retainTexts();
    const auto *found = std::find(texts.begin(), texts.end(), text);
    if (found == texts.end()) {
        return std::nullopt;
    }
    return static_cast<RetainPolicy>(std::distance(texts.begin(), found));
}

RetainPolicy parseRetainPolicyLeniently(const std::string &text)
{
    const auto policy = parseRetainPolicy(text);
    if (!policy) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sInvalid retain policy using 'property'", LOG_PREFIX);
    }
    return policy.value_or(RetainPolicy::PROPERTY);
}

/** Takes the segment's namespaces off, the last of which becomes the current one. */
std::string_view takeNamespaces(std::string_view segment, std::string &currentNamespace)
{
    for (auto colon = segment.find(':'); colon != std::string_view::npos;
         colon = segment.find(':')) {
        currentNamespace = segment.substr(0, colon);
        segment.remove_prefix(colon + 1);
    }
    return segment;
}

/** Adds segments to a list until it has passed its limits. */
class SegmentAppender {
public:
    explicit SegmentAppender(TopicSegments &target) : segments(target)
    {
        for (const auto &[nameSpace, name] : segments) {
            bytes += nameSpace.size() + name.size();
        }
    }

    bool hasRoom() const
    {
        return segments.size() <= MOST_TOPIC_SEGMENTS && bytes <= MOST_TOPIC_BYTES;
    }

    void append(std::string nameSpace, std::string name)
    {
        bytes += nameSpace.size() + name.size();
        segments.emplace_back(std::move(nameSpace), std::move(name));
    }

private:
    TopicSegments &segments;
    std::size_t bytes = 0;
};

} // namespace

ParsedTopicFilter parseTopicFilter(const std::string &topicFilter)
{
    ParsedTopicFilter parsed;
    std::string_view rest = topicFilter;
    if (rest.ends_with(SUBTOPICS_SUFFIX)) {
        parsed.matchSubtopics = true;
        rest.remove_suffix(SUBTOPICS_SUFFIX.size());
    }
    SegmentAppender appender(parsed.segments);
    std::string currentNamespace;
    while (!rest.empty() && appender.hasRoom()) {
        const auto slash = rest.find('/');
        const auto name = takeNamespaces(rest.substr(0, slash), currentNamespace);
        appender.append(currentNamespace, std::string(name));
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    }
    return parsed;
}

EventFilterConfig::EventFilterConfig(const char *topicFilterText, std::int32_t qosLevel,
                                     const char *retainText)
    : topicFilter(topicFilterText),
      qos(qosLevel),
      retainPolicy(parseRetainPolicyLeniently(retainText))
{
    appendParsed(topicFilter);
}

EventFilterConfig &EventFilterConfig::operator=(EventFilterConfig other)
{
    const auto lock = guard.lock();
    swapValues(other);
    return *this;
}

void EventFilterConfig::swapValues(EventFilterConfig &other) noexcept
{
    topicFilter.swap(other.topicFilter);
    std::swap(qos, other.qos);
    std::swap(retainPolicy, other.retainPolicy);
    std::swap(matchSubtopics, other.matchSubtopics);
    topicSegments.swap(other.topicSegments);
}

void EventFilterConfig::setTopicFilter(const std::string &text)
{
    const auto lock = guard.lock();
    topicFilter = text;
    appendParsed(text);
}

void EventFilterConfig::setQos(std::int32_t level)
{
    const auto lock = guard.lock();
    qos = level;
}

void EventFilterConfig::setRetainPolicy(const std::string &text)
{
    const auto policy = parseRetainPolicy(text);
    if (!policy) {
        throw ConfigException("Invalid retain type");
    }
    const auto lock = guard.lock();
    retainPolicy = *policy;
}

const std::string &EventFilterConfig::retainPolicyText() const
{
    const auto index = static_cast<std::size_t>(retainPolicy);
    if (index >= retainTexts().size()) {
        throw ConfigException("Invalid retain type");
    }
    return retainTexts().at(index);
}

void EventFilterConfig::appendParsed(const std::string &text)
{
    auto parsed = parseTopicFilter(text);
    matchSubtopics = matchSubtopics || parsed.matchSubtopics;
    SegmentAppender appender(topicSegments);
    for (auto &[nameSpace, name] : parsed.segments) {
        if (!appender.hasRoom()) {
            break;
        }
        appender.append(std::move(nameSpace), std::move(name));
    }
}

} // namespace tovrel
