#include "tovrelctl/mqtt_topic_filter.h"

#include <string_view>

namespace tovrelctl {

namespace {

constexpr std::string_view WILDCARDS = "+#";

bool hasWildcard(std::string_view text)
{
    return text.find_first_of(WILDCARDS) != std::string_view::npos;
}

/** A wildcard stands alone in its level, and "#" in the last one. */
bool isValid(std::string_view filter)
{
    bool isLast = false;
    for (std::string_view rest = filter; !isLast;) {
        const std::size_t slash = rest.find('/');
        isLast = slash == std::string_view::npos;
        const std::string_view level = rest.substr(0, slash);
        if (hasWildcard(level) && (level.size() > 1 || (level == "#" && !isLast))) {
            return false;
        }
        rest.remove_prefix(isLast ? rest.size() : slash + 1);
    }
    return !filter.empty();
}

} // namespace

std::string findingOn(const std::string &topicFilter, bool isStateful)
{
    if (!isValid(topicFilter)) {
        return "MQTT knows no such topic filter, so no message will come";
    }
    if (isStateful && hasWildcard(topicFilter)) {
        return "stateful, but with a wildcard, so no message becomes an event";
    }
    if (topicFilter.find(' ') != std::string::npos) {
        return "tovrel will cut the topic filter at its blank when it starts again";
    }
    return {};
}

} // namespace tovrelctl
