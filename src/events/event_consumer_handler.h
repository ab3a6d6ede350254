/**
 * The event-to-MQTT half of the bridge: takes the device events that the configured filters select
 * and publishes them through the bridge.
 *
 * Three kinds of threads meet here. The main thread owns the configuration. The event service's
 * thread delivers events and the MQTT client's status. Two workers of our own do what may be slow:
 * the status worker subscribes and unsubscribes the filters, the publish worker publishes.
 * Locks are never nested, and none is held while publishing, subscribing or logging.
 */
#pragma once

#include "events/event_container.h"
#include "events/publication_config.h"
#include "interfaces/base_event_consumer_handler.h"
#include "interfaces/c_handles.h"

#include <norq/event_consumer.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <queue>
#include <string>
#include <thread>

namespace tovrel {

class BaseEventBridge;
struct SubscriptionHandle;

/** See the head of this file. One instance exists. */
class EventConsumerHandler final : public BaseEventConsumerHandler {
public:
    /** Most event filter subscriptions at a time. */
    static constexpr std::size_t MAX_SUBSCRIPTIONS = 512;
    /** Most events that wait for publication; beyond it the oldest is dropped. */
    static constexpr std::size_t MAX_QUEUED_EVENTS = 1024;

    /** Loads the configuration. `publishTo` is borrowed, may be null, and outlives this object. */
    explicit EventConsumerHandler(BaseEventBridge *publishTo);

    /** Ends both workers and all subscriptions; what is queued is dropped. */
    ~EventConsumerHandler() override;

    EventConsumerHandler(const EventConsumerHandler &) = delete;
    EventConsumerHandler &operator=(const EventConsumerHandler &) = delete;

    void start(const std::string &deviceSerialNumber) override;
    void setPublicationConfig(const PublicationConfig &newConfig) override;
    void refreshSubscriptions() override;
    void setMessagingStatus(bool nowActive, bool nowConnected) override;
    void enqueueEvent(const std::shared_ptr<EventContainer> &container,
                      const event_t *event) override;
    void subscribeEventFilters() override;
    void unsubscribeEventFilters() override;
    PublicationConfig &getPublicationConfig() override;
    std::size_t eventFilterCount() override;
    void statusWorker() override;
    void publishWorker() override;

    /** Publishes one event, or logs that there is no bridge. Publish worker only. */
    void publishEvent(const EventContainer &container);

private:
    /** -1: free; else its own place in the table. The number's address is a user data. */
    struct SubscriptionSlot {
        std::atomic<std::int32_t> index{-1};
    };

    using Consumer = CHandle<event_consumer_t, event_consumer_free>;
    using Expression = CHandle<subscribe_expression_t, subscribe_expression_free>;

    static void statusCallback(event_t *event, void *userData);
    static void deliveryCallback(event_t *event, void *userData);

    void subscribeStatus();
    void applyRequest(bool subscribe);
    void subscribeEventFilter(const EventFilterConfig &filter);
    void endSubscription(std::int32_t slot, const SubscriptionHandle &record);
    static std::int32_t findFreeSlot();
    void discardQueuedEvents();
    void stopWorkers();

    BaseEventBridge *bridge;
    Consumer consumer;
    std::string serialNumber;
    /** The event filters are subscribed, or are just about to be. */
    std::atomic<bool> active{false};
    /** The MQTT client is connected. Changed under eventMutex, so that no wake-up is lost. */
    std::atomic<bool> connected{false};
    std::int32_t statusSubscriptionId = -1;
    /** Of the process, not of the object: a late callback may read its slot when that has gone. */
    static std::array<SubscriptionSlot, MAX_SUBSCRIPTIONS> subscriptionSlots;
    std::thread statusThread;
    std::condition_variable statusCondition;
    std::queue<bool> statusQueue;
    std::mutex configMutex; // guards changes of config against copies made by other threads
    std::mutex statusMutex; // guards statusQueue, and the comparison of a request with active
    PublicationConfig config;
    /**
     * Cleared under eventMutex, and before statusMutex is taken once, so that neither worker can
     * miss the wake-up that follows.
     */
    std::atomic<bool> running{false};
    /** The destructor has begun: no more calls of the event service that may take long. */
    std::atomic<bool> ending{false};
    /** An unsubscription was cut short by an exception. Status worker only. */
    bool unsubscribingIsDue = false;
    std::queue<std::shared_ptr<EventContainer>> eventQueue;
    std::mutex eventMutex; // guards eventQueue, overflowLogged and the change of connected
    std::condition_variable eventCondition;
    std::thread publishThread;
    bool overflowLogged = false;
};

} // namespace tovrel
