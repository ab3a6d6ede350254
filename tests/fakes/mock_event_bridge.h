/** Mock of the hub of the service. */
#pragma once

#include "events/publication_config.h"
#include "interfaces/base_dbus_handler.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/base_event_consumer_handler.h"
#include "interfaces/base_event_producer_handler.h"
#include "mqtt/subscription_store.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tovrel::test {

class MockEventBridge : public BaseEventBridge {
public:
    MOCK_METHOD(void, run,
                (std::unique_ptr<BaseDbusHandler> &, std::unique_ptr<BaseEventProducerHandler> &,
                 std::unique_ptr<BaseEventConsumerHandler> &),
                (override));
    MOCK_METHOD(void, quit, (), (override));
    MOCK_METHOD(void, replaceSubscriptions, (const SubscriptionStore &), (override));
    MOCK_METHOD(void, setPublicationConfig, (const PublicationConfig &), (override));
    MOCK_METHOD(void, refreshPublication, (), (override));
    MOCK_METHOD(const PublicationConfig &, getPublicationConfig, (), (const, override));
    MOCK_METHOD(PublicationConfig &, getPublicationConfig, (), (override));
    MOCK_METHOD(void, setupSubscriptions, (), (override));
    MOCK_METHOD(void, publish, (const std::string &, bool, const char *, std::size_t, int, bool),
                (override));
    MOCK_METHOD(const SubscriptionStore &, getSubscriptions, (), (const, override));
    MOCK_METHOD(SubscriptionStore &, getSubscriptions, (), (override));
    MOCK_METHOD(void, resetConfiguration, (), (override));
    MOCK_METHOD(std::string, getDeviceTopicPrefix, (), (override));
};

} // namespace tovrel::test
