/** One event filter of the publication configuration. */
#pragma once

#include "events/config_guard.h"

#include <norq/event_types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tovrel {

/** When the MQTT retain flag is set for messages of a filter. */
enum class RetainPolicy : std::int32_t {
    NONE = 0,     /**< never */
    PROPERTY = 1, /**< for property (stateful) events */
    ALL = 2       /**< always */
};

/** (namespace, name) of each level of a topic; a level without a namespace has the one before's. */
using TopicSegments = std::vector<std::pair<std::string, std::string>>;

/**
 * Segments of a topic filter are kept until these limits are passed. The event service refuses a
 * filter that passes them, so the rest would only take memory: a text of a few bytes a level
 * would take a hundred times its size, and more with a long namespace.
 */
inline constexpr std::size_t MOST_TOPIC_SEGMENTS = EVENT_MAX_KEYS;
/** Bytes of all names and namespaces; each of the two is limited by itself at the service. */
inline constexpr std::size_t MOST_TOPIC_BYTES = std::size_t{2} * EVENT_MAX_SIZE;

/** A topic filter in its parts. */
struct ParsedTopicFilter {
    /** Whether the filter ended in "//.": topics below the named one match, too. */
    bool matchSubtopics = false;
    /** Up to and with the one that passes a limit. */
    TopicSegments segments;
};

/** Splits a topic filter such as "tns1:Device/tnsnorq:Beta//." into its parts. */
ParsedTopicFilter parseTopicFilter(const std::string &topicFilter);

/**
 * An event filter: which events, published with which QoS and retain policy. A value type; the
 * items of a live configuration change under its owner's lock.
 */
class EventFilterConfig {
public:
    /**
     * A filter from its texts. An unknown retain text is logged and means "property". Null texts
     * raise std::logic_error. The QoS is stored as it stands.
     */
    EventFilterConfig(const char *topicFilterText, std::int32_t qosLevel, const char *retainText);

    EventFilterConfig(const EventFilterConfig &) = default;
    EventFilterConfig(EventFilterConfig &&) = default;
    /** Takes over everything but the guard, under the lock of a live target. */
    EventFilterConfig &operator=(EventFilterConfig other);
    ~EventFilterConfig() = default;

    /**
     * Replaces the text of the filter. Its segments are appended to those that are there, and
     * matchSubtopics stays true once it was: a changed filter selects what an event service
     * subscription with all these levels selects, until it is built anew from the file. Beyond
     * the limits above nothing is appended any more.
     */
    void setTopicFilter(const std::string &text);

    void setQos(std::int32_t level);

    /** "none", "property" or "all"; throws ConfigException, with nothing changed, for others. */
    void setRetainPolicy(const std::string &text);

    /** The policy's text; throws ConfigException for a value that has none. */
    [[nodiscard]] const std::string &retainPolicyText() const;

    [[nodiscard]] const std::string &getTopicFilter() const { return topicFilter; }
    [[nodiscard]] std::int32_t getQos() const { return qos; }
    [[nodiscard]] RetainPolicy getRetainPolicy() const { return retainPolicy; }
    [[nodiscard]] bool getMatchSubtopics() const { return matchSubtopics; }
    [[nodiscard]] const TopicSegments &getTopicSegments() const { return topicSegments; }

private:
    friend class PublicationConfig;

    void appendParsed(const std::string &text);
    /** Everything but the guards, without their locks. */
    void swapValues(EventFilterConfig &other) noexcept;

    ConfigGuard guard;
    std::string topicFilter;
    std::int32_t qos;
    RetainPolicy retainPolicy;
    bool matchSubtopics = false;
    TopicSegments topicSegments;
};

} // namespace tovrel
