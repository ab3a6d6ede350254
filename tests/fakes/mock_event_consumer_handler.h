/** Mock of the event-to-MQTT half of the bridge. */
#pragma once

#include "events/publication_config.h"
#include "interfaces/base_event_consumer_handler.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tovrel::test {

class MockEventConsumerHandler : public BaseEventConsumerHandler {
public:
    MOCK_METHOD(void, start, (const std::string &), (override));
    MOCK_METHOD(void, setPublicationConfig, (const PublicationConfig &), (override));
    MOCK_METHOD(void, refreshSubscriptions, (), (override));
    MOCK_METHOD(void, setMessagingStatus, (bool, bool), (override));
    MOCK_METHOD(void, enqueueEvent, (const std::shared_ptr<EventContainer> &, const event_t *),
                (override));
    MOCK_METHOD(void, subscribeEventFilters, (), (override));
    MOCK_METHOD(void, unsubscribeEventFilters, (), (override));
    MOCK_METHOD(PublicationConfig &, getPublicationConfig, (), (override));
    MOCK_METHOD(std::size_t, eventFilterCount, (), (override));
    MOCK_METHOD(void, statusWorker, (), (override));
    MOCK_METHOD(void, publishWorker, (), (override));
};

} // namespace tovrel::test
