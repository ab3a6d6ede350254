/** The hub: owns the MQTT client, the collaborators and the MQTT-to-event items. */
#pragma once

#include "interfaces/base_dbus_handler.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/base_event_consumer_handler.h"
#include "interfaces/base_event_producer_handler.h"
#include "interfaces/c_handles.h"
#include "mqtt/subscription_store.h"

#include <glib.h>
#include <norq/mqtt_messaging.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

namespace tovrel {

/**
 * One object for the life of the process. Everything belongs to the main thread except publish(),
 * which the consumer's publish worker calls.
 *
 * The MQTT side is implemented in this folder; construction, run(), quit() and self-termination
 * are the core's.
 */
class EventBridge final : public BaseEventBridge {
public:
    /** Creates the main loop of the default context. */
    EventBridge();
    ~EventBridge() override;

    void run(std::unique_ptr<BaseDbusHandler> &newDbusHandler,
             std::unique_ptr<BaseEventProducerHandler> &newProducerHandler,
             std::unique_ptr<BaseEventConsumerHandler> &newConsumerHandler) override;
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

    /** Arms self-termination when nothing is configured, and disarms it when something is. */
    void updateTerminationTask();

    /** Reads the stored items, migrates those of the former format and declares their events. */
    void loadSubscriptions();

    /**
     * Sends a message as device events: at most one stateless and one stateful one, however many
     * items match `topic`. `payload` is NUL-terminated UTF-8.
     */
    void dispatchMessage(const std::string &topic, bool devicePrefix, const char *payload);

private:
    BaseEventConsumerHandler &requireConsumer() const;
    void declareEvent(const SubscriptionConfig &subscription);
    void subscribe(const std::string &nameInLog, const SubscriptionConfig &subscription);
    void unsubscribe(const std::string &nameInLog, const SubscriptionConfig &subscription);

    std::unique_ptr<BaseDbusHandler> dbusHandler;
    std::unique_ptr<BaseEventProducerHandler> producerHandler;
    std::unique_ptr<BaseEventConsumerHandler> consumerHandler;
    CHandle<GMainLoop, g_main_loop_unref> mainLoop;
    SubscriptionStore subscriptions;
    CHandle<MQTTMsg_t, MQTTMsg_delete> mqttClient; // from run() to quit()
    std::mutex mqttMutex; // guards mqttClient; held for one call of the client, never while logging
    guint terminationSourceId = 0; // 0: no termination is pending
};

} // namespace tovrel
