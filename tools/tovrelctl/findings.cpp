#include "tovrelctl/findings.h"

#include "tovrelctl/event_topic_filter.h"
#include "tovrelctl/mqtt_topic_filter.h"
#include "tovrelctl/output.h"

namespace tovrelctl {

namespace {

/** The same with the item's name before each. */
Findings named(const char *word, const json_t *item, Findings findings)
{
    for (std::string &finding : findings) {
        finding.insert(0, std::string(word) + " " + textOf(item, "id") + ": ");
    }
    return findings;
}

void add(Findings &all, const Findings &more)
{
    all.insert(all.end(), more.begin(), more.end());
}

} // namespace

Findings findingsOnSubscription(const json_t *item)
{
    return named("subscription", item,
                 findingsOnMqttTopic(textOf(item, "topicFilter"), isTrue(item, "isStateData")));
}

Findings findingsOnFilter(const json_t *filter)
{
    return named("filter", filter, findingsOnEventTopic(textOf(filter, "topicFilter")));
}

Findings findingsOnSettings(const json_t *publication)
{
    const std::string prefix = textOf(publication, "customTopicPrefix");
    if (hasMqttWildcard(prefix) || hasControlCharacter(prefix)) {
        return {"customTopicPrefix: MQTT knows no such topics, so no message will go out with it"};
    }
    return {};
}

Findings findingsOnDocument(const json_t *document)
{
    const json_t *const publication = json_object_get(document, "publication");
    Findings all = findingsOnSettings(publication);
    for (const json_t *filter : valuesOf(json_object_get(publication, "eventFilter"))) {
        add(all, findingsOnFilter(filter));
    }
    for (const json_t *item : valuesOf(json_object_get(document, "subscription"))) {
        add(all, findingsOnSubscription(item));
    }
    return all;
}

void warn(const Findings &findings)
{
    for (const std::string &finding : findings) {
        complain("warning: " + finding);
    }
}

} // namespace tovrelctl
