/** The event-to-MQTT configuration: which device events are published, and how. */
#pragma once

#include "events/config_guard.h"
#include "events/event_filter_config.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace tovrel {

/** What holds for every published event. */
struct PublicationSettings {
    /** "default", "custom" or "none"; not checked, kept as it was given. */
    std::string topicPrefixSetting = "default";
    /** The prefix used with "custom". */
    std::string customTopicPrefix;
    bool appendEventTopic = true;
    bool includeTopicNamespaces = true;
    bool includeSerialNumberInPayload = false;
};

/** Event filters by id, in the order of the ids as texts ("10" before "2"). */
using EventFilters = std::map<std::string, EventFilterConfig>;

/**
 * The settings and up to 256 event filters, kept in "/etc/tovrel/event_to_mqtt_v2.conf".
 *
 * A value type: a copy is deep and private. One thread at a time may use it. The live
 * configuration, attached to its owner's mutex by attachGuard(), may besides be copied by other
 * threads with copyGuarded() and the like while its own thread changes it.
 */
class PublicationConfig {
public:
    static constexpr std::size_t MAX_ITEMS = 256;

    /** The lowest free id, now taken. Throws ConfigException when all are. */
    std::string allocateId();

    /**
     * Frees an id, taken or not. Throws ConfigException for a number outside 0..255, and what
     * std::stoi throws for a text that is not a number.
     */
    void releaseId(const std::string &id);

    /** The filter with this id; throws NoSuchConfigException when there is none. */
    [[nodiscard]] const EventFilterConfig &getEventFilter(const std::string &id) const;
    EventFilterConfig &getEventFilter(const std::string &id);

    /** Inserts or replaces a filter under a given id, without taking the id. */
    void setEventFilter(const std::string &id, EventFilterConfig filter);

    /**
     * Adds a filter under a newly allocated id and returns the id. A filter that is there already
     * under that id (loaded from the file, which takes no ids) stays, and the new one is dropped.
     */
    std::string addEventFilter(EventFilterConfig filter);

    /** Removes a filter and frees its id; throws NoSuchConfigException when there is none. */
    void removeEventFilter(const std::string &id);

    /** Writes the configuration file. Failures are logged. Throws for a retain policy without text.
     */
    void save() const;

    /**
     * Reads the current file, or the legacy one, into this configuration. After the legacy file the
     * current one is written, and then the legacy one deleted, also when writing failed. Failures
     * are logged; a missing file is none.
     */
    void load(bool current);

    void setTopicPrefixSetting(const std::string &text);
    void setCustomTopicPrefix(const std::string &text);
    void setAppendEventTopic(bool value);
    void setIncludeTopicNamespaces(bool value);
    void setIncludeSerialNumberInPayload(bool value);

    [[nodiscard]] const PublicationSettings &getSettings() const { return settings; }
    [[nodiscard]] const EventFilters &getEventFilters() const { return eventFilters; }

    /** Makes this the live configuration of `owner`'s holder; changes take that lock from now on.
     */
    void attachGuard(std::mutex &owner);

    /** A private copy, made under the lock. Any thread. */
    [[nodiscard]] PublicationConfig copyGuarded() const;

    /** A copy of the settings alone, made under the lock. Any thread. */
    [[nodiscard]] PublicationSettings copySettingsGuarded() const;

    /** Whether payloads carry the serial number, read under the lock. Any thread. */
    [[nodiscard]] bool includesSerialNumberGuarded() const;

    PublicationConfig() = default;
    PublicationConfig(const PublicationConfig &other) = default;
    /** Takes over everything but the guard, under the lock of a live target. */
    PublicationConfig &operator=(const PublicationConfig &other);
    ~PublicationConfig() = default;

private:
    void loadCurrent();
    void migrateLegacy();
    void guardFilters();

    ConfigGuard guard;
    std::array<std::uint32_t, MAX_ITEMS> idInUse{};
    EventFilters eventFilters;
    PublicationSettings settings;
};

} // namespace tovrel
