#include "unit/api/fuzz_bridge.h"

#include "events/publication_paths.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "mqtt/config_paths.h"
#include "mqtt/subscription_file.h"
#include "support/fuzz.h"
#include "unit/events/config_texts.h"

#include <glib.h>

#include <algorithm>
#include <sstream>
#include <utility>

using test_support::require;

namespace tovrel::test {

namespace {

void ignoreLog(const gchar * /*domain*/, GLogLevelFlags /*level*/, const gchar * /*message*/,
               gpointer /*userData*/)
{
}

ConfigurationState stateOf(const SubscriptionStore::Items &items,
                           const PublicationConfig &publication)
{
    return {.items = items,
            .settings = settingsText(publication.getSettings()),
            .filters = filterTexts(publication)};
}

const std::string &savedText(const char *path)
{
    const auto found = fakeConfutils().files.find(path);
    require(found != fakeConfutils().files.end(), "what was changed is saved");
    return found->second.contents;
}

std::string firstWord(const std::string &text)
{
    std::string word;
    std::istringstream(text) >> word;
    return word;
}

/** A key file has no way to write a form feed, and takes it for a blank before the value. */
std::string withoutLeadingFormFeed(const std::string &text)
{
    return text.starts_with('\f')
               ? text.substr(std::min(text.find_first_not_of(" \t\f"), text.size()))
               : text;
}

} // namespace

void KeepingBridge::run(std::unique_ptr<BaseDbusHandler> & /*dbusHandler*/,
                        std::unique_ptr<BaseEventProducerHandler> & /*producerHandler*/,
                        std::unique_ptr<BaseEventConsumerHandler> & /*consumerHandler*/)
{
    require(false, "nobody runs the bridge");
}

void KeepingBridge::quit()
{
    require(false, "nobody quits the bridge");
}

void KeepingBridge::replaceSubscriptions(const SubscriptionStore &newStore)
{
    use();
    newStore.saveToFile();
    subscriptions = newStore;
}

void KeepingBridge::setPublicationConfig(const PublicationConfig &config)
{
    use();
    publication = config;
    publication.save();
}

void KeepingBridge::refreshPublication()
{
    use();
}

const PublicationConfig &KeepingBridge::getPublicationConfig() const
{
    use();
    return publication;
}

PublicationConfig &KeepingBridge::getPublicationConfig()
{
    use();
    return publication;
}

void KeepingBridge::setupSubscriptions()
{
    require(false, "nobody sets up subscriptions");
}

void KeepingBridge::publish(const std::string & /*topic*/, bool /*useDeviceTopicPrefix*/,
                            const char * /*payload*/, std::size_t /*payloadLength*/, int /*qos*/,
                            bool /*retain*/)
{
    require(false, "nobody publishes");
}

const SubscriptionStore &KeepingBridge::getSubscriptions() const
{
    use();
    return subscriptions;
}

SubscriptionStore &KeepingBridge::getSubscriptions()
{
    use();
    return subscriptions;
}

void KeepingBridge::resetConfiguration()
{
    use();
    ++resets;
    subscriptions = {};
    publication = {};
}

std::string KeepingBridge::getDeviceTopicPrefix()
{
    use();
    return "site/device";
}

ConfigurationState KeepingBridge::state() const
{
    return stateOf(subscriptions.items, publication);
}

ConfigurationState KeepingBridge::lastingState() const
{
    SubscriptionStore::Items items = subscriptions.items;
    for (auto &[id, item] : items) {
        item.topicFilter = firstWord(item.topicFilter);
    }
    PublicationConfig fresh = publication;
    for (const auto &[id, filter] : publication.getEventFilters()) {
        fresh.setEventFilter(id, EventFilterConfig(filter.getTopicFilter().c_str(), filter.getQos(),
                                                   filter.retainPolicyText().c_str()));
    }
    const PublicationSettings settings = publication.getSettings();
    fresh.setTopicPrefixSetting(withoutLeadingFormFeed(settings.topicPrefixSetting));
    fresh.setCustomTopicPrefix(withoutLeadingFormFeed(settings.customTopicPrefix));
    return stateOf(items, fresh);
}

void KeepingBridge::use() const
{
    if (const auto toCall = std::exchange(onNextUse, nullptr)) {
        toCall();
    }
}

void requireBounds(const ConfigurationState &state)
{
    require(state.items.size() <= SubscriptionStore::ID_COUNT, "ids bound the items");
    require(state.filters.size() <= PublicationConfig::MAX_ITEMS, "the filters are bounded");
}

ConfigurationState savedState()
{
    SubscriptionStore::Items items;
    std::istringstream stream(savedText(subscriptionsFile()));
    readSubscriptions(stream, items);

    writeFile(publicationFile(), savedText(publicationFile()));
    PublicationConfig publication;
    publication.load(true);
    return stateOf(items, publication);
}

void prepareFuzzing()
{
    g_log_set_default_handler(ignoreLog, nullptr);
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    setRecording(false);
    fakeConfutils() = FakeConfutils();
}

} // namespace tovrel::test
