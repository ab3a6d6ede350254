#include "events/event_translation.h"

#include "interfaces/c_handles.h"

#include <array>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <string_view>

namespace tovrel {

namespace {

using JsonOptions = CHandle<json_options_t, json_options_free>;

/** Levels of a topic that are looked at; a declaration may have more keys than that. */
constexpr std::size_t MAX_TOPIC_LEVELS = 100;

/** Room for the levels of nearly every event, and for nearly every topic. */
constexpr std::size_t USUAL_TOPIC_LEVELS = 8;
constexpr std::size_t USUAL_TOPIC_LENGTH = 160;

using LevelKey = std::array<char, sizeof "topic99">;

constexpr std::array<LevelKey, MAX_TOPIC_LEVELS> makeLevelKeys()
{
    std::array<LevelKey, MAX_TOPIC_LEVELS> keys{};
    for (std::size_t level = 0; level < keys.size(); ++level) {
        LevelKey key{'t', 'o', 'p', 'i', 'c'};
        std::size_t end = 5;
        if (level >= 10) {
            key[end++] = static_cast<char>('0' + level / 10);
        }
        key[end] = static_cast<char>('0' + level % 10);
        keys[level] = key;
    }
    return keys;
}

/** The names "topic0" to "topic99", ready-made: to format one costs more than to look it up. */
constexpr std::array<LevelKey, MAX_TOPIC_LEVELS> LEVEL_KEYS = makeLevelKeys();

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
    container.topicLevels.reserve(USUAL_TOPIC_LEVELS);
    for (const auto &key : LEVEL_KEYS) {
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
    if (!options) {
        throw std::bad_alloc();
    }
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

/** Appends the event's own topic: its levels, with a marker wherever the namespace changes. */
void appendEventTopic(std::string &topic, const EventContainer &container,
                      bool includeTopicNamespaces)
{
    if (container.topicLevels.empty()) {
        appendPart(topic, "");
    }
    std::string_view currentNamespace;
    for (const auto &[level, alias] : container.topicLevels) {
        if (alias != currentNamespace) {
            currentNamespace = alias;
            if (includeTopicNamespaces) {
                appendPart(topic, "tns:");
                topic += alias;
            }
        }
        appendPart(topic, level);
    }
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

MqttTopic mqttTopicFor(const EventContainer &container, const PublicationSettings &settings)
{
    const bool custom =
        settings.topicPrefixSetting == "custom" && !settings.customTopicPrefix.empty();
    MqttTopic result;
    result.useDeviceTopicPrefix = !custom;
    result.topic.reserve(USUAL_TOPIC_LENGTH);
    result.topic = custom ? std::string_view(settings.customTopicPrefix) : "event";
    if (settings.appendEventTopic) {
        appendEventTopic(result.topic, container, settings.includeTopicNamespaces);
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
