#include "events/idle_event_consumer_handler.h"

namespace tovrel {

void IdleEventConsumerHandler::start(const std::string & /*serialNumber*/) {}

void IdleEventConsumerHandler::setPublicationConfig(const PublicationConfig &newConfig)
{
    config = newConfig;
}

void IdleEventConsumerHandler::refreshSubscriptions() {}

void IdleEventConsumerHandler::setMessagingStatus(bool /*active*/, bool /*connected*/) {}

void IdleEventConsumerHandler::enqueueEvent(const std::shared_ptr<EventContainer> & /*container*/,
                                            const event_t * /*event*/)
{
}

void IdleEventConsumerHandler::subscribeEventFilters() {}

void IdleEventConsumerHandler::unsubscribeEventFilters() {}

PublicationConfig &IdleEventConsumerHandler::getPublicationConfig()
{
    return config;
}

std::size_t IdleEventConsumerHandler::eventFilterCount()
{
    return config.eventFilters.size();
}

void IdleEventConsumerHandler::statusWorker() {}

void IdleEventConsumerHandler::publishWorker() {}

} // namespace tovrel
