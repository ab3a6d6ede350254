/** The MQTT-to-event configuration: which MQTT topics become device events, and of which kind. */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace tovrel {

/** One MQTT-to-event item. Its id is the key under which it is kept. */
struct SubscriptionConfig {
    /** True: messages become a stateful event, whose last value is kept; false: a stateless one. */
    bool isStateData = false;
    /** MQTT quality of service of the subscription, 0 to 2; not checked here. */
    std::int32_t qos = 0;
    /** Whether the MQTT client puts the device topic prefix before the filter. */
    bool useDeviceTopicPrefix = false;
    /** MQTT topic filter; '+' and '#' allowed. */
    std::string topicFilter;

    bool operator==(const SubscriptionConfig &) const = default;
};

/**
 * The items with their ids, as a value: copies are deep and independent. Main thread only.
 *
 * To remove an item, erase it from `items` and give its id back with releaseId().
 */
class SubscriptionStore {
public:
    /** Ids run from 0 to one below this. */
    static constexpr std::size_t ID_COUNT = 256;

    using Items = std::map<std::string, SubscriptionConfig>;

    /** Takes the lowest free id. Throws NoSuchConfigException when none is free. */
    std::string allocateId();

    /**
     * Frees an id, whether or not it was taken; `items` stays as it is. Throws
     * SubscribeConfigException for a number outside 0..255, and what std::stoi throws for a text
     * that is not a number.
     */
    void releaseId(const std::string &id);

    /**
     * Adds an item under a new id and returns the id. If an item is kept under that id already, it
     * stays and the new one is dropped. Throws SubscribeConfigException for an invalid filter, and
     * what allocateId() throws.
     */
    std::string addSubscription(const std::string &topicFilter, bool useDeviceTopicPrefix,
                                std::int32_t qos, bool isStateData);

    /**
     * Puts an item under a given id, in place of one that is there, and takes the id. The filter is
     * not checked. Throws as releaseId().
     */
    void setSubscription(const std::string &id, const std::string &topicFilter,
                         bool useDeviceTopicPrefix, std::int32_t qos, bool isStateData);

    /**
     * Adds the items of the configuration file. Items that are there already stay; the ids that are
     * read are not taken. A missing file adds nothing; a damaged one what comes before the damage.
     */
    void loadFromFile();

    /**
     * Adds the items of the file of the former format under new ids, then deletes that file and
     * saves. Throws SubscribeConfigException when saving fails.
     */
    void migrateLegacyFile();

    /** Replaces the configuration file. Throws SubscribeConfigException when that fails. */
    void saveToFile() const;

    /** Items by the decimal text of their id, ordered as texts ("10" before "2"). */
    Items items;

private:
    std::uint32_t &usedEntry(const std::string &id);

    std::array<std::uint32_t, ID_COUNT> usedIds{}; // 1: taken, 0: free
};

} // namespace tovrel
