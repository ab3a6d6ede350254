#include "tovrelctl/mqtt_topic_filter.h"

#include <glib.h>

#include <string_view>

namespace tovrelctl {

namespace {

constexpr const char *WILDCARDS = "+#";
/** What separates words in the service's file; a line feed never gets there. */
constexpr const char *BLANKS = " \t\v\f\r";

/** A wildcard stands alone in its level, and "#" in the last one. */
bool hasWildcardsInPlace(std::string_view filter)
{
    bool isLast = false;
    for (std::string_view rest = filter; !isLast;) {
        const std::size_t slash = rest.find('/');
        isLast = slash == std::string_view::npos;
        const std::string_view level = rest.substr(0, slash);
        const bool hasWildcard = level.find_first_of(WILDCARDS) != std::string_view::npos;
        if (hasWildcard && (level.size() > 1 || (level == "#" && !isLast))) {
            return false;
        }
        rest.remove_prefix(isLast ? rest.size() : slash + 1);
    }
    return true;
}

std::string firstWord(const std::string &text)
{
    const std::size_t begin = text.find_first_not_of(BLANKS);
    return begin == std::string::npos
               ? std::string()
               : text.substr(begin, text.find_first_of(BLANKS, begin) - begin);
}

} // namespace

bool hasMqttWildcard(const std::string &text)
{
    return text.find_first_of(WILDCARDS) != std::string::npos;
}

bool hasControlCharacter(const std::string &text)
{
    for (const char *at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        if (g_unichar_iscntrl(g_utf8_get_char(at)) != FALSE) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> findingsOnMqttTopic(const std::string &topicFilter, bool isStateful)
{
    std::vector<std::string> findings;
    if (topicFilter.empty() || hasControlCharacter(topicFilter) ||
        !hasWildcardsInPlace(topicFilter)) {
        findings.emplace_back("MQTT knows no such topic filter, so no message will come");
    } else if (isStateful && hasMqttWildcard(topicFilter)) {
        findings.emplace_back("stateful, but with a wildcard, so no message becomes an event");
    }
    if (const std::string word = firstWord(topicFilter); word != topicFilter) {
        findings.push_back("tovrel keeps the first word of a topic filter alone: when it starts "
                           "again, this one is '" +
                           word + "'");
    }
    return findings;
}

} // namespace tovrelctl
