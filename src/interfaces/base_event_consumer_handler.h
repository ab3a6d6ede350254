/** Selects device events and publishes them, as the rest of the service sees it. */
#pragma once

#include <norq/event.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tovrel {

class PublicationConfig;
struct EventContainer;

/** The event-to-MQTT half of the bridge. */
class BaseEventConsumerHandler {
public:
    BaseEventConsumerHandler() = default;
    BaseEventConsumerHandler(const BaseEventConsumerHandler &) = delete;
    BaseEventConsumerHandler &operator=(const BaseEventConsumerHandler &) = delete;
    virtual ~BaseEventConsumerHandler() = default;

    /** Starts the workers and follows the MQTT client's status. Main thread, once. */
    virtual void start(const std::string &serialNumber) = 0;

    /** Takes over a copy of a configuration, saves it and applies it. Main thread. */
    virtual void setPublicationConfig(const PublicationConfig &config) = 0;

    /** Subscribes the event filters anew if they are subscribed. Main thread. */
    virtual void refreshSubscriptions() = 0;

    /** Notes the MQTT client's status. Any thread. */
    virtual void setMessagingStatus(bool active, bool connected) = 0;

    /** Translates an event (borrowed) into `container` and queues it. Event service's thread. */
    virtual void enqueueEvent(const std::shared_ptr<EventContainer> &container,
                              const event_t *event) = 0;

    /** Subscribes every configured event filter. Status worker only. */
    virtual void subscribeEventFilters() = 0;

    /** Ends every event filter subscription and discards what is queued. Status worker only. */
    virtual void unsubscribeEventFilters() = 0;

    /** The live configuration. Main thread. */
    virtual PublicationConfig &getPublicationConfig() = 0;

    /** Number of configured event filters. Main thread. */
    virtual std::size_t eventFilterCount() = 0;

    /** Body of the status worker's thread. */
    virtual void statusWorker() = 0;

    /** Body of the publish worker's thread. */
    virtual void publishWorker() = 0;
};

} // namespace tovrel
