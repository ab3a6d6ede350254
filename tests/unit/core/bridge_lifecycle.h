/** A bridge between mocks, with sources, main loop and time in the hands of the test. */
#pragma once

#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_glib_sources.h"
#include "fakes/fake_mqtt.h"
#include "fakes/log_capture.h"
#include "fakes/mock_dbus_handler.h"
#include "fakes/mock_event_consumer_handler.h"
#include "fakes/mock_event_producer_handler.h"
#include "mqtt/event_bridge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tovrel::test {

/** Leaves a trace in the list of calls when it is destroyed. */
template <typename Mock>
class Traced : public ::testing::NiceMock<Mock> {
public:
    explicit Traced(std::string ownName) : name(std::move(ownName)) {}
    ~Traced() override { recordCall("destroy " + name); }

private:
    std::string name;
};

/** The bridge has not run yet; the mocks leave their traces in the list of calls. */
class BridgeLifecycle : public ::testing::Test {
protected:
    BridgeLifecycle()
    {
        resetCalls();
        resetFakeMqtt();
        sources.reset();
        emptyConfigFolder();
        auto dbusMock = std::make_unique<Traced<MockDbusHandler>>("dbus");
        auto producerMock = std::make_unique<Traced<MockEventProducerHandler>>("producer");
        auto consumerMock = std::make_unique<Traced<MockEventConsumerHandler>>("consumer");
        dbus = dbusMock.get();
        producer = producerMock.get();
        consumer = consumerMock.get();
        dbusHolder = std::move(dbusMock);
        producerHolder = std::move(producerMock);
        consumerHolder = std::move(consumerMock);
        traceMocks();
    }

    void traceMocks()
    {
        ON_CALL(*dbus, getSerialNumber).WillByDefault([] {
            recordCall("dbus getSerialNumber");
            return "SERIAL";
        });
        ON_CALL(*dbus, start).WillByDefault([] { recordCall("dbus start"); });
        ON_CALL(*dbus, releaseNameAndQuit).WillByDefault([this](GMainLoop *loop) {
            recordCall("dbus releaseNameAndQuit");
            releaseLoop = loop;
            return releaseStarts;
        });
        ON_CALL(*consumer, start).WillByDefault([](const std::string &serialNumber) {
            recordCall("consumer start " + serialNumber);
        });
        ON_CALL(*consumer, eventFilterCount).WillByDefault([this] { return filterCount; });
        ON_CALL(*producer, start).WillByDefault([] { recordCall("producer start"); });
        ON_CALL(*producer, declareStatelessEvent)
            .WillByDefault([](const std::string &topicFilter, bool) {
                recordCall("producer declareStatelessEvent " + topicFilter);
            });
    }

    void run() { bridge->run(dbusHolder, producerHolder, consumerHolder); }

    /** Runs the bridge; `action` happens while its main loop runs. */
    void runAndThen(std::function<void()> action)
    {
        sources.whileRunning = std::move(action);
        run();
        EXPECT_EQ(sources.runLoops.size(), 1U);
    }

    void addSubscription() { bridge->getSubscriptions().addSubscription("a/b", false, 1, false); }

    std::vector<FakeGlibSources::Source> timeouts() const { return sources.attached("timeout"); }

    FakeGlibSources &sources = FakeGlibSources::instance();
    LogCapture log;
    MockDbusHandler *dbus;
    MockEventProducerHandler *producer;
    MockEventConsumerHandler *consumer;
    std::unique_ptr<BaseDbusHandler> dbusHolder;
    std::unique_ptr<BaseEventProducerHandler> producerHolder;
    std::unique_ptr<BaseEventConsumerHandler> consumerHolder;
    std::size_t filterCount = 0;
    bool releaseStarts = true;
    GMainLoop *releaseLoop = nullptr;
    std::unique_ptr<EventBridge> bridge = std::make_unique<EventBridge>();
};

} // namespace tovrel::test
