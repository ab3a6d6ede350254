#include "unit/events/config_texts.h"

namespace tovrel::test {

namespace {

std::string flag(bool value)
{
    return value ? "1" : "0";
}

} // namespace

std::vector<std::string>
segmentTexts(const std::vector<std::pair<std::string, std::string>> &segments, bool matchSubtopics)
{
    std::vector<std::string> texts;
    texts.reserve(segments.size() + 1);
    for (const auto &[nameSpace, name] : segments) {
        texts.push_back(nameSpace + "|" + name);
    }
    if (matchSubtopics) {
        texts.emplace_back("//.");
    }
    return texts;
}

std::string filterText(const EventFilterConfig &filter)
{
    std::string text = "'" + filter.getTopicFilter() + "' qos " + std::to_string(filter.getQos()) +
                       " retain " + filter.retainPolicyText();
    for (const auto &segment :
         segmentTexts(filter.getTopicSegments(), filter.getMatchSubtopics())) {
        text += " " + segment;
    }
    return text;
}

std::string settingsText(const PublicationSettings &settings)
{
    return settings.topicPrefixSetting + " '" + settings.customTopicPrefix + "' topic " +
           flag(settings.appendEventTopic) + " namespaces " +
           flag(settings.includeTopicNamespaces) + " serial " +
           flag(settings.includeSerialNumberInPayload);
}

std::vector<std::string> filterTexts(const PublicationConfig &config)
{
    std::vector<std::string> texts;
    for (const auto &[id, filter] : config.getEventFilters()) {
        texts.push_back(id + ": " + filterText(filter));
    }
    return texts;
}

} // namespace tovrel::test
