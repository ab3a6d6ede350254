/** Events that wait for the MQTT client: their order, their bound, and what discards them. */
#include "events/event_consumer_handler.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

namespace tovrel::test {

namespace {

using testing::IsEmpty;

/** Consumer that is active, with one filter, and disconnected. */
class DisconnectedConsumerTest : public ConsumerTest {
protected:
    void SetUp() override
    {
        ConsumerTest::SetUp();
        bridge.onPublish = [this](const Publication &) {
            if (!mayPublish) {
                ADD_FAILURE() << "published while disconnected";
            }
        };
        startConsumer({"onvif:Device"});
        activate();
    }

    void connect()
    {
        mayPublish = true;
        sendStatus("true", "true");
    }
    void disconnect()
    {
        sendStatus("true", "false");
        mayPublish = false;
    }
    void deliverNumbers(int first, int last)
    {
        for (int number = first; number <= last; ++number) {
            deliver(simpleEvent(std::to_string(number)));
        }
    }
    static std::vector<std::string> numbers(int first, int last)
    {
        std::vector<std::string> texts;
        for (int number = first; number <= last; ++number) {
            texts.push_back(std::to_string(number));
        }
        return texts;
    }

    std::atomic<bool> mayPublish = false;
};

const LogLine TOO_MANY_EVENTS = progressLine("Too many queued events, dropping the oldest one");

} // namespace

TEST_F(DisconnectedConsumerTest, QueuedEventsGoOutInOrderWhenItConnects)
{
    deliverNumbers(1, 50);
    EXPECT_THAT(bridge.payloads(), IsEmpty());
    connect();
    ASSERT_TRUE(bridge.waitForPublications(50));
    EXPECT_EQ(bridge.payloads(), numbers(1, 50));
}

TEST_F(DisconnectedConsumerTest, Holds1024EventsWithoutALoss)
{
    deliverNumbers(1, 1024);
    EXPECT_EQ(log.take(), Lines());
    connect();
    ASSERT_TRUE(bridge.waitForPublications(1024));
    EXPECT_EQ(bridge.payloads(), numbers(1, 1024));
}

TEST_F(DisconnectedConsumerTest, DropsTheOldestOf1025AndSaysSo)
{
    deliverNumbers(1, 1025);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
    connect();
    ASSERT_TRUE(bridge.waitForPublications(1024));
    EXPECT_EQ(bridge.payloads(), numbers(2, 1025));
}

TEST_F(DisconnectedConsumerTest, SaysSoOnceForEachRunOfDrops)
{
    deliverNumbers(1, 1100);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
    connect();
    ASSERT_TRUE(bridge.waitForPublications(1024));
    disconnect();
    deliverNumbers(1, 1);
    EXPECT_EQ(log.take(), Lines());
    deliverNumbers(2, 1026);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
}

TEST_F(DisconnectedConsumerTest, DoesNotSaySoAgainWhenNothingWasPushedBelowTheBound)
{
    deliverNumbers(1, 1025);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
    deactivate(); // discards what is queued, but pushes nothing
    activate();
    deliverNumbers(1, 1024);
    EXPECT_EQ(log.take(), Lines());
    deliverNumbers(1025, 1026);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
}

TEST_F(DisconnectedConsumerTest, E5DiscardsWhatIsQueuedWhenItBecomesInactive)
{
    deliverNumbers(1, 10);
    deactivate();
    activate();
    deliverNumbers(11, 12);
    connect();
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_EQ(bridge.payloads(), numbers(11, 12));
}

TEST_F(DisconnectedConsumerTest, E6DiscardsWhatIsQueuedWhenItsConfigurationChanges)
{
    deliverNumbers(1, 10);
    const int before = fakeSubscribeCount();
    consumer->setPublicationConfig(configWith("onvif:Device"));
    ASSERT_TRUE(test_support::waitUntil([&] { return fakeSubscribeCount() > before; }));
    deliverNumbers(11, 12);
    connect();
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_EQ(bridge.payloads(), numbers(11, 12));
}

} // namespace tovrel::test
