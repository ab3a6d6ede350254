/** A bridge that runs its main loop with recorded collaborators, for as long as a test needs it. */
#pragma once

#include "events/publication_config.h"
#include "fakes/mock_dbus_handler.h"
#include "fakes/mock_event_consumer_handler.h"
#include "mqtt/event_bridge.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace tovrel::test {

/** Notes every call in the record that the faked libraries share. */
class RecordingProducer : public BaseEventProducerHandler {
public:
    void start() override;
    void declareStatelessEvent(const std::string &topicFilter, bool useDeviceTopicPrefix) override;
    void declareStatefulEvent(const std::string &topicFilter, bool useDeviceTopicPrefix) override;
    void sendStatelessEvent(const std::string &topic, bool devicePrefix,
                            const char *payload) override;
    void sendStatefulEvent(const std::string &topic, bool devicePrefix,
                           const char *payload) override;
    void undeclareAllEvents() override;
};

/**
 * Fixture with an empty configuration folder. The consumer claims one event filter, so that the
 * bridge does not arm its self-termination.
 */
class RunningBridgeTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /**
     * Runs the bridge: starts it, empties the record of calls and the log when it is up, runs
     * `body` on the main loop and quits. What start-up did is in `startCalls` and `startLines`.
     */
    void whileRunning(const std::function<void()> &body);

    LogCapture log;
    PublicationConfig publication;
    testing::NiceMock<MockDbusHandler> *dbus = nullptr;              // the bridge's, while running
    testing::NiceMock<MockEventConsumerHandler> *consumer = nullptr; // the bridge's, while running
    std::unique_ptr<EventBridge> bridge;
    Calls startCalls;
    Lines startLines;

private:
    static gboolean runBody(gpointer data);

    std::function<void()> body;
};

} // namespace tovrel::test
