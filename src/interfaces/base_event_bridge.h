/** The hub of the service, as its collaborators see it. */
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace tovrel {

class BaseDbusHandler;
class BaseEventConsumerHandler;
class BaseEventProducerHandler;
class PublicationConfig;
class SubscriptionStore;

/** All operations except publish() belong to the main thread. */
class BaseEventBridge {
public:
    BaseEventBridge() = default;
    BaseEventBridge(const BaseEventBridge &) = delete;
    BaseEventBridge &operator=(const BaseEventBridge &) = delete;
    virtual ~BaseEventBridge() = default;

    /**
     * Takes the collaborators over, starts the service and returns when its main loop has ended.
     * Returns early, with nothing taken over, when the MQTT client cannot be initialised. Rethrows
     * what escaped a callback of the main loop.
     */
    virtual void run(std::unique_ptr<BaseDbusHandler> &dbusHandler,
                     std::unique_ptr<BaseEventProducerHandler> &producerHandler,
                     std::unique_ptr<BaseEventConsumerHandler> &consumerHandler) = 0;

    /** Gives the bus name back, ends the main loop and deletes the MQTT client. */
    virtual void quit() = 0;

    /**
     * Saves `newStore`, then makes a copy of it the live store and subscribes it. Throws
     * SubscribeConfigException, with nothing changed, when it cannot be saved.
     */
    virtual void replaceSubscriptions(const SubscriptionStore &newStore) = 0;

    /** Hands a new configuration to the consumer. Throws EventBridgeException without one. */
    virtual void setPublicationConfig(const PublicationConfig &config) = 0;

    /** Lets the consumer apply its configuration anew. Throws EventBridgeException without one. */
    virtual void refreshPublication() = 0;

    /** The consumer's live configuration. Throws EventBridgeException without a consumer. */
    virtual const PublicationConfig &getPublicationConfig() const = 0;
    virtual PublicationConfig &getPublicationConfig() = 0;

    /** Subscribes every stored MQTT topic filter. */
    virtual void setupSubscriptions() = 0;

    /**
     * Publishes one message; `payloadLength` is in bytes. A failure is logged and not reported.
     * Any thread.
     */
    virtual void publish(const std::string &topic, bool useDeviceTopicPrefix, const char *payload,
                         std::size_t payloadLength, int qos, bool retain) = 0;

    /** The live MQTT-to-event items. */
    virtual const SubscriptionStore &getSubscriptions() const = 0;
    virtual SubscriptionStore &getSubscriptions() = 0;

    /** Empties the MQTT-to-event items and resets the publication settings; saves nothing. */
    virtual void resetConfiguration() = 0;

    /** The device topic prefix, empty when there is none. Blocks on the system bus. */
    virtual std::string getDeviceTopicPrefix() = 0;
};

} // namespace tovrel
