/**
 * What fuzz targets need of a bridge: one that keeps and saves a configuration as the service's own
 * does, but has no clients behind it.
 */
#pragma once

#include "events/publication_config.h"
#include "interfaces/base_event_bridge.h"
#include "mqtt/subscription_store.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tovrel::test {

/** Everything that a configuration consists of; equal ones cannot be told apart from outside. */
struct ConfigurationState {
    SubscriptionStore::Items items;
    std::string settings;
    std::vector<std::string> filters;

    bool operator==(const ConfigurationState &) const = default;
};

class KeepingBridge final : public BaseEventBridge {
public:
    void run(std::unique_ptr<BaseDbusHandler> &dbusHandler,
             std::unique_ptr<BaseEventProducerHandler> &producerHandler,
             std::unique_ptr<BaseEventConsumerHandler> &consumerHandler) override;
    void quit() override;
    void replaceSubscriptions(const SubscriptionStore &newStore) override;
    void setPublicationConfig(const PublicationConfig &config) override;
    void refreshPublication() override;
    const PublicationConfig &getPublicationConfig() const override;
    PublicationConfig &getPublicationConfig() override;
    void setupSubscriptions() override;
    void publish(const std::string &topic, bool useDeviceTopicPrefix, const char *payload,
                 std::size_t payloadLength, int qos, bool retain) override;
    const SubscriptionStore &getSubscriptions() const override;
    SubscriptionStore &getSubscriptions() override;
    void resetConfiguration() override;
    std::string getDeviceTopicPrefix() override;

    [[nodiscard]] ConfigurationState state() const;

    /**
     * What of the state outlives a restart: of an MQTT topic filter, the first word; of an event
     * filter that was changed, the levels of the text that it has now.
     */
    [[nodiscard]] ConfigurationState lastingState() const;

    /** How often the configuration was reset. */
    int resets = 0;
    /** Called, once, at the start of the next operation on the configuration; may throw. */
    mutable std::function<void()> onNextUse;

private:
    void use() const;

    SubscriptionStore subscriptions;
    PublicationConfig publication;
};

/** Ends the process when a configuration has grown over its bounds. */
void requireBounds(const ConfigurationState &state);

/** What a start of the service would find: the state as it was last written to the files. */
ConfigurationState savedState();

/** Forgets all files, keeps the process quiet, and lets critical messages of GLib end it. */
void prepareFuzzing();

} // namespace tovrel::test
