/** Start and destruction, many times, whatever the workers are doing. */
#include "events/event_consumer_handler.h"
#include "fakes/call_record.h"
#include "unit/events/consumer_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

namespace tovrel::test {

namespace {

constexpr int CYCLES = 10000;

class ConsumerCyclesTest : public ConsumerTest {
protected:
    void SetUp() override
    {
        ConsumerTest::SetUp();
        setRecording(false);
    }
    void TearDown() override
    {
        ConsumerTest::TearDown();
        setRecording(true);
    }

    void enqueue(const char *json)
    {
        event_t *const event = newFakeEvent(simpleEvent(json));
        consumer->enqueueEvent(std::make_shared<EventContainer>(), event);
        event_free(event);
    }
};

} // namespace

TEST_F(ConsumerCyclesTest, EndWithIdleWorkers)
{
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
        startConsumer();
        consumer.reset();
    }
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(ConsumerCyclesTest, EndWithBusyWorkers)
{
    std::atomic<int> subscribed = 0;
    setFakeConsumerHook([&] { ++subscribed; });
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
        startConsumer({"onvif:A", "onvif:B"});
        sendStatus("true", "true");
        enqueue("1");
        consumer->refreshSubscriptions();
        enqueue("2");
        sendStatus("false", "true");
        enqueue("3");
        consumer.reset();
    }
    EXPECT_EQ(log.take(), Lines());
    EXPECT_GT(subscribed, CYCLES * 2); // status subscription and end of the consumer, and filters
    EXPECT_GT(bridge.publications().size(), 0U);
}

TEST_F(ConsumerCyclesTest, EndWithDisconnectedWorkers)
{
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
        startConsumer({"onvif:A"});
        sendStatus("true", "false");
        enqueue("1");
        enqueue("2");
        consumer.reset();
    }
    EXPECT_EQ(log.take(), Lines());
    EXPECT_TRUE(bridge.publications().empty());
}

} // namespace tovrel::test
