/** Keeps the event-to-MQTT configuration while nothing serves it. */
#pragma once

#include "events/publication_config.h"
#include "interfaces/base_event_consumer_handler.h"

#include <cstddef>
#include <memory>
#include <string>

namespace tovrel {

/**
 * The direction from events to MQTT is not served by this class: it selects no event and publishes
 * nothing. It holds the configuration in memory only, so that the rest of the service can work.
 */
class IdleEventConsumerHandler final : public BaseEventConsumerHandler {
public:
    void start(const std::string &serialNumber) override;
    void setPublicationConfig(const PublicationConfig &newConfig) override;
    void refreshSubscriptions() override;
    void setMessagingStatus(bool active, bool connected) override;
    void enqueueEvent(const std::shared_ptr<EventContainer> &container,
                      const event_t *event) override;
    void subscribeEventFilters() override;
    void unsubscribeEventFilters() override;
    PublicationConfig &getPublicationConfig() override;
    std::size_t eventFilterCount() override;
    void statusWorker() override;
    void publishWorker() override;

private:
    PublicationConfig config;
};

} // namespace tovrel
