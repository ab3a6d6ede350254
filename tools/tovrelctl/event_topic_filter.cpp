#include "tovrelctl/event_topic_filter.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tovrelctl {

namespace {

constexpr std::string_view SUBTOPICS = "//.";
/** What stands for a level, or for all below, elsewhere. */
constexpr std::array<std::string_view, 4> FOREIGN_WILDCARDS{"#", "+", "*", "."};
/** The namespace that a filter names "norq", as the event service's own tools write it. */
constexpr std::string_view FULL_NAME = "tnsnorq";

struct Level {
    /** Its own, or that of the level before; empty when neither has one. */
    std::string_view nameSpace;
    std::string_view name;
};

/** Levels as the service reads them: nothing stands behind a "/" at the end. */
std::vector<Level> levelsOf(std::string_view filter)
{
    std::vector<Level> levels;
    std::string_view nameSpace;
    while (!filter.empty()) {
        const std::size_t slash = filter.find('/');
        std::string_view name = filter.substr(0, slash);
        for (std::size_t colon = 0; (colon = name.find(':')) != std::string_view::npos;) {
            nameSpace = name.substr(0, colon);
            name.remove_prefix(colon + 1);
        }
        levels.push_back({nameSpace, name});
        filter.remove_prefix(slash == std::string_view::npos ? filter.size() : slash + 1);
    }
    return levels;
}

void findNamespaces(const std::vector<Level> &levels, std::vector<std::string> &findings)
{
    if (!levels.empty() && levels.front().nameSpace.empty()) {
        findings.emplace_back("it selects no event: a namespace, as in onvif:Device or norq:Door, "
                              "is missing before its first level");
    }
    if (std::ranges::count(levels, FULL_NAME, &Level::nameSpace) > 0) {
        findings.emplace_back("it selects no event: 'tnsnorq:' has to be written 'norq:' here");
    }
}

void findNames(const std::vector<Level> &levels, std::vector<std::string> &findings)
{
    const auto isWildcard = [](std::string_view name) {
        return std::ranges::count(FOREIGN_WILDCARDS, name) > 0;
    };
    const auto wildcard = std::ranges::find_if(levels, isWildcard, &Level::name);
    if (wildcard != levels.end()) {
        findings.push_back("'" + std::string(wildcard->name) +
                           "' is no wildcard of events; //. at the end stands for all below");
        return;
    }
    if (std::ranges::count(levels, std::string_view(), &Level::name) > 0) {
        findings.emplace_back("it selects no event: one of its levels is empty");
    }
}

} // namespace

std::vector<std::string> findingsOnEventTopic(const std::string &topicFilter)
{
    if (topicFilter.empty()) {
        return {"it selects no event: it is empty; //. selects every one"};
    }
    std::string_view rest = topicFilter;
    if (rest.ends_with(SUBTOPICS)) {
        rest.remove_suffix(SUBTOPICS.size());
    }
    const std::vector<Level> levels = levelsOf(rest);
    std::vector<std::string> findings;
    findNamespaces(levels, findings);
    findNames(levels, findings);
    return findings;
}

} // namespace tovrelctl
