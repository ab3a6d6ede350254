#include "mqtt/subscription_store.h"

#include "interfaces/exceptions.h"
#include "mqtt/config_paths.h"
#include "mqtt/subscription_file.h"

#include <norq/mqtt_messaging.h>

#include <algorithm>

namespace tovrel {

std::string SubscriptionStore::allocateId()
{
    auto *const entry = std::find(usedIds.begin(), usedIds.end(), 0U);
    if (entry == usedIds.end()) {
        throw NoSuchConfigException("No available IDs");
    }
    *entry = 1;
    return std::to_string(entry - usedIds.begin());
}

void SubscriptionStore::releaseId(const std::string &id)
{
    usedEntry(id) = 0;
}

std::string SubscriptionStore::addSubscription(const std::string &topicFilter,
                                               bool useDeviceTopicPrefix, std::int32_t qos,
                                               bool isStateData)
{
    // A line feed is a character to MQTT, but not to the lines of the file.
    if (topicFilter.find('\n') != std::string::npos ||
        !MQTTMsg_check_sub_topic(topicFilter.c_str())) {
        throw SubscribeConfigException("Invalid MQTT topic");
    }
    std::string id = allocateId();
    items.try_emplace(id, SubscriptionConfig{.isStateData = isStateData,
                                             .qos = qos,
                                             .useDeviceTopicPrefix = useDeviceTopicPrefix,
                                             .topicFilter = topicFilter});
    return id;
}

void SubscriptionStore::setSubscription(const std::string &id, const std::string &topicFilter,
                                        bool useDeviceTopicPrefix, std::int32_t qos,
                                        bool isStateData)
{
    std::uint32_t &entry = usedEntry(id);
    items.insert_or_assign(id, SubscriptionConfig{.isStateData = isStateData,
                                                  .qos = qos,
                                                  .useDeviceTopicPrefix = useDeviceTopicPrefix,
                                                  .topicFilter = topicFilter});
    entry = 1;
}

void SubscriptionStore::loadFromFile()
{
    loadSubscriptionFile(subscriptionsFile(), *this);
}

void SubscriptionStore::migrateLegacyFile()
{
    migrateLegacySubscriptionFile(legacySubscriptionsFile(), subscriptionsFile(), *this);
}

void SubscriptionStore::saveToFile() const
{
    saveSubscriptionFile(subscriptionsFile(), *this);
}

std::uint32_t &SubscriptionStore::usedEntry(const std::string &id)
{
    const auto number = static_cast<unsigned int>(std::stoi(id));
    if (number >= usedIds.size()) {
        throw SubscribeConfigException("Invalid ID");
    }
    return usedIds.at(number);
}

} // namespace tovrel
