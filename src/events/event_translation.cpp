#include "events/event_translation.h"

#include "interfaces/c_handles.h"

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace tovrel {

namespace {

using JsonOptions = CHandle<json_options_t, json_options_free>;

/** More levels than any event service topic has. */
constexpr unsigned int MAX_TOPIC_LEVELS = 100;

void freeTags(GList *tags)
{
    g_list_free_full(tags, g_free);
}
using TagList = CHandle<GList, freeTags>;

/** The short names that topics use for the two well-known namespaces. */
const char *namespaceAlias(std::string_view prefix)
{
    if (prefix == "tns1") {
        return "onvif";
    }
    return prefix == "tnsnorq" ? "norq" : prefix.data();
}

void extractTopicLevels(EventContainer &container, const event_t *event)
{
    for (unsigned int level = 0; level < MAX_TOPIC_LEVELS; ++level) {
        std::array<char, sizeof "topic99"> key{};
        std::snprintf(key.data(), key.size(), "topic%u", level);
        const char *value = event_get_value(event, key.data());
        if (value == nullptr) {
            return;
        }
        const char *prefix = event_get_name_space(event, key.data());
        if (prefix == nullptr || *prefix == '\0') {
            continue;
        }
        container.topicLevels.emplace_back(value, namespaceAlias(prefix));
    }
}

void extractItem(EventContainer &container, const event_t *event, unsigned int index)
{
    const char *name = event_get_key_at(event, index);
    const char *value = event_get_value_at(event, index);
    const TagList tags(event_get_tags_at(event, index));
    for (const GList *tag = tags.get(); tag != nullptr; tag = tag->next) {
        const std::string_view text = static_cast<const char *>(tag->data);
        if (text == "onvif-source") {
            container.sources.try_emplace(name, value);
        } else if (text == "onvif-key") {
            container.keys.try_emplace(name, value);
        }
    }
}

std::string renderPayload(const event_t *event, const char *serialNumber)
{
    const JsonOptions options(json_options_new());
    json_options_set_onvif_namespace(options.get(), "onvif");
    json_options_set_norq_namespace(options.get(), "norq");
    if (serialNumber != nullptr) {
        json_options_set_serialnumber(options.get(), serialNumber);
    }
    const MallocText text(event_get_json(event, options.get()));
    if (!text) {
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    return text.get();
}

void appendPart(std::string &topic, std::string_view part)
{
    topic += '/';
    topic += part;
}

void appendItems(std::string &topic, std::string_view marker,
                 const std::map<std::string, std::string> &items)
{
    if (items.empty()) {
        return;
    }
    appendPart(topic, marker);
    for (const auto &[name, value] : items) {
        appendPart(topic, name);
        appendPart(topic, value);
    }
}

} // namespace

void extractEvent(EventContainer &container, const event_t *event, const char *serialNumber)
{
    container.isProperty = event_is_property(event) != 0;
    extractTopicLevels(container, event);
    const auto keyCount = event_get_key_count(event);
    for (unsigned int index = 0; index < keyCount; ++index) {
        extractItem(container, event, index);
    }
    container.payload = renderPayload(event, serialNumber);
}

std::string eventTopicText(const EventContainer &container, bool includeTopicNamespaces)
{
    std::string text;
    std::string_view currentNamespace;
    bool first = true;
    for (const auto &[level, alias] : container.topicLevels) {
        if (!first) {
            text += '/';
        }
        first = false;
        if (alias != currentNamespace) {
            currentNamespace = alias;
            if (includeTopicNamespaces) {
                text += "tns:" + alias + '/';
            }
        }
        text += level;
    }
    return text;
}

MqttTopic mqttTopicFor(const EventContainer &container, const PublicationSettings &settings)
{
    const bool custom =
        settings.topicPrefixSetting == "custom" && !settings.customTopicPrefix.empty();
    MqttTopic result{custom ? settings.customTopicPrefix : "event", !custom};
    if (settings.appendEventTopic) {
        appendPart(result.topic, eventTopicText(container, settings.includeTopicNamespaces));
        appendItems(result.topic, "$source", container.sources);
        appendItems(result.topic, "$key", container.keys);
    }
    return result;
}

bool isRetained(const EventContainer &container)
{
    switch (container.retainPolicy) {
    case RetainPolicy::ALL:
        return true;
    case RetainPolicy::PROPERTY:
        return container.isProperty;
    case RetainPolicy::NONE:
        break;
    }
    return false;
}

} // namespace tovrel
