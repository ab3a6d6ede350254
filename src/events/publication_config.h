/** What is published to MQTT, and how: plain values. */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tovrel {

/** When a published message carries MQTT's retain flag. The numbers are stored and sent. */
enum class RetainPolicy : std::int32_t {
    NONE = 0,     /**< never */
    PROPERTY = 1, /**< for property (stateful) events only */
    ALL = 2,      /**< always */
};

/** One event filter. Its id is the key under which it is kept. */
struct EventFilterConfig {
    /** The event topic filter as configured, UTF-8; this is what is saved. */
    std::string topicFilter;
    /** MQTT quality of service, 0 to 2; not checked here. */
    std::int32_t qos = 0;
    /** Retain handling of this filter's messages. */
    RetainPolicy retainPolicy = RetainPolicy::NONE;
    /** Whether topics below the named one are selected too. */
    bool matchSubtopics = false;
    /** The topic filter as (namespace, name) pairs, the outermost first. */
    std::vector<std::pair<std::string, std::string>> topicSegments;
};

/** The event-to-MQTT configuration; copies are independent. */
class PublicationConfig {
public:
    /** Ids run from 0 to one below this, which bounds the number of filters handed out. */
    static constexpr std::size_t ID_COUNT = 256;

    /** Which ids are taken: 1, or free: 0. */
    std::array<std::uint32_t, ID_COUNT> idInUse{};
    /** Filters by the decimal text of their id, ordered as texts ("10" before "2"). */
    std::map<std::string, EventFilterConfig> eventFilters;
    /** "default", "custom" or "none"; any other text is kept as it is. */
    std::string topicPrefixSetting = "default";
    /** The prefix used with the setting "custom". */
    std::string customTopicPrefix;
    /** Whether the event's topic follows the prefix. */
    bool appendEventTopic = true;
    /** Whether namespaces stay in the MQTT topic. */
    bool includeTopicNamespaces = true;
    /** Whether the payload carries the device's serial number. */
    bool includeSerialNumberInPayload = false;
};

} // namespace tovrel
