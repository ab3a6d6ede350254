#include "mqtt/subscription_file.h"

#include "interfaces/c_handles.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <norq/confutils.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace tovrel {

namespace {

constexpr int FILE_MODE = 0640;

const char *flagText(bool flag)
{
    return flag ? "1" : "0";
}

/** The next line whole; false, with a warning about `fieldName`, when there is none. */
bool readLine(std::istream &stream, const char *fieldName, std::string &line)
{
    if (std::getline(stream, line)) {
        return true;
    }
    tovrel_log(LOG_LEVEL_WARN, "%sMissing %s", LOG_PREFIX, fieldName);
    return false;
}

/** The next line's first word as a value; what is no such value is left to the extraction. */
template <typename Value>
bool readField(std::istream &stream, const char *fieldName, Value &value)
{
    std::string line;
    if (!readLine(stream, fieldName, line)) {
        return false;
    }
    std::istringstream(line) >> value;
    return true;
}

/** The three lines that end a record in both formats. */
bool readSettings(std::istream &stream, const char *statefulFieldName,
                  SubscriptionConfig &subscription)
{
    return readField(stream, "device_prefix_flag", subscription.useDeviceTopicPrefix) &&
           readField(stream, "qos", subscription.qos) &&
           readField(stream, statefulFieldName, subscription.isStateData);
}

} // namespace

std::string formatSubscriptions(const SubscriptionStore::Items &items)
{
    std::string text;
    for (const auto &[id, subscription] : items) {
        text.append(id).append("\n");
        text.append(subscription.topicFilter).append("\n");
        text.append(flagText(subscription.useDeviceTopicPrefix)).append("\n");
        text.append(std::to_string(subscription.qos)).append("\n");
        text.append(flagText(subscription.isStateData)).append("\n");
    }
    return text;
}

void readSubscriptions(std::istream &stream, SubscriptionStore::Items &items)
{
    std::string id;
    while (std::getline(stream, id)) {
        SubscriptionConfig subscription;
        if (!readField(stream, "topic", subscription.topicFilter) ||
            !readSettings(stream, "stateful flag", subscription)) {
            return;
        }
        items.try_emplace(id, subscription);
    }
}

bool readLegacySubscriptions(std::istream &stream, SubscriptionStore &store)
{
    std::string topicFilter;
    while (std::getline(stream, topicFilter)) {
        SubscriptionConfig subscription;
        if (!readSettings(stream, "stateful", subscription)) {
            return false;
        }
        try {
            store.addSubscription(topicFilter, subscription.useDeviceTopicPrefix, subscription.qos,
                                  subscription.isStateData);
        } catch (const std::exception &error) {
            tovrel_log(LOG_LEVEL_WARN, "%sCould not create new subscription: %s", LOG_PREFIX,
                       error.what());
        }
    }
    if (!stream.eof()) {
        tovrel_log(LOG_LEVEL_WARN, "%sCould not read former MQTT-to-event configurations",
                   LOG_PREFIX);
        return false;
    }
    return true;
}

void loadSubscriptionFile(const char *path, SubscriptionStore &store)
{
    confutils_sweep_temporary_files(path);
    std::ifstream file(path);
    readSubscriptions(file, store.items);
}

void migrateLegacySubscriptionFile(const char *legacyPath, const char *path,
                                   SubscriptionStore &store)
{
    std::ifstream file(legacyPath);
    if (!file.is_open() || !readLegacySubscriptions(file, store)) {
        return;
    }
    file.close();
    if (std::remove(legacyPath) != 0) {
        tovrel_log(LOG_LEVEL_WARN, "%sCould not delete %s", LOG_PREFIX, legacyPath);
    }
    saveSubscriptionFile(path, store);
}

void saveSubscriptionFile(const char *path, const SubscriptionStore &store)
{
    const std::string text = formatSubscriptions(store.items);
    ErrorHandle error;
    if (confutils_set_file_contents_with_sync_mode(
            path, text.data(), static_cast<gssize>(text.size()), FILE_MODE, OutParameter(error))) {
        return;
    }
    tovrel_log(LOG_LEVEL_FAILURE, "%sCould not save MQTT-to-event configurations to file: %s",
               LOG_PREFIX, error ? error->message : "");
    throw SubscribeConfigException("Could not store configuration");
}

} // namespace tovrel
