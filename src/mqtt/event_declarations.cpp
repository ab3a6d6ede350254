#include "mqtt/event_declarations.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tovrel {

namespace {

constexpr const char *NAME_SPACE = "tnsnorq";

struct TopicLevel {
    const char *key;
    const char *value;
    const char *niceName;
};

struct Key {
    const char *name;
    event_value_type type; // of the value when it is open
    const char *tag;
    std::optional<event_value_t> fixedValue;
};

using Topic = std::array<TopicLevel, 3>;

constexpr Topic STATELESS_TOPIC{{{"topic0", "MQTT", "External MQTT"},
                                 {"topic1", "Message", "MQTT Message"},
                                 {"topic2", "Stateless", "Stateless Event"}}};

constexpr Topic STATEFUL_TOPIC{{{"topic0", "MQTT", "External MQTT"},
                                {"topic1", "Message", "MQTT Message"},
                                {"topic2", "Stateful", "Stateful Event"}}};

bool addTopicLevel(event_declaration_t *declaration, const TopicLevel &level)
{
    return event_declaration_add_key_value(declaration, level.key, event_value_string(level.value),
                                           nullptr) &&
           event_declaration_set_name_space(declaration, level.key, NAME_SPACE) &&
           event_declaration_set_nice_names(declaration, level.key, nullptr, level.niceName);
}

bool addKey(event_declaration_t *declaration, const Key &key)
{
    const int added =
        key.fixedValue
            ? event_declaration_add_key_value(declaration, key.name, *key.fixedValue, nullptr)
            : event_declaration_add_key(declaration, key.name, key.type, nullptr);
    return added && event_declaration_add_key_tag(declaration, key.name, key.tag);
}

DeclarationHandle makeDeclaration(const Topic &topic, std::optional<event_value_t> topicFilter,
                                  std::optional<event_value_t> devicePrefix)
{
    const std::array<Key, 3> keys{{
        {KEY_MQTT_TOPIC, EVENT_VALUE_STRING, "onvif-source", topicFilter},
        {KEY_MQTT_PAYLOAD, EVENT_VALUE_STRING, "onvif-data", std::nullopt},
        {KEY_DEVICE_PREFIX, EVENT_VALUE_BOOLEAN, "onvif-source", devicePrefix},
    }};
    DeclarationHandle declaration(event_declaration_new(EVENT_DECLARATION_DEFAULT, nullptr));
    const bool complete = declaration &&
                          std::all_of(topic.begin(), topic.end(),
                                      [&](const TopicLevel &level) {
                                          return addTopicLevel(declaration.get(), level);
                                      }) &&
                          std::all_of(keys.begin(), keys.end(), [&](const Key &key) {
                              return addKey(declaration.get(), key);
                          });
    return complete ? std::move(declaration) : nullptr;
}

} // namespace

DeclarationHandle makeGenericStatelessDeclaration()
{
    return makeDeclaration(STATELESS_TOPIC, std::nullopt, std::nullopt);
}

DeclarationHandle makeStatelessDeclaration(const std::string &topicFilter,
                                           bool useDeviceTopicPrefix)
{
    return makeDeclaration(STATELESS_TOPIC, event_value_string(topicFilter.c_str()),
                           event_value_boolean(useDeviceTopicPrefix));
}

DeclarationHandle makeStatefulDeclaration(const std::string &topicFilter, bool useDeviceTopicPrefix)
{
    DeclarationHandle declaration =
        makeDeclaration(STATEFUL_TOPIC, event_value_string(topicFilter.c_str()),
                        event_value_boolean(useDeviceTopicPrefix));
    if (declaration &&
        !event_declaration_set_property(declaration.get(), KEY_MQTT_PAYLOAD, 0, nullptr)) {
        return nullptr;
    }
    return declaration;
}

} // namespace tovrel
