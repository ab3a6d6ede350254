/** Threads of the consumer in the orders that matter, each order enforced. */
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/held_worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace tovrel::test {

namespace {

using testing::ElementsAre;

constexpr std::chrono::seconds PATIENCE{5};

class ConsumerInterleavingTest : public ConsumerTest {
protected:
    void TearDown() override
    {
        ConsumerTest::TearDown();
        syncHooks() = {};
    }

    /** Destroys the consumer while a worker is held; true when that comes to an end by itself. */
    bool destructionEnds(HeldWorker &worker)
    {
        std::atomic<bool> ended = false;
        std::thread destruction([&] {
            consumer.reset();
            ended = true;
        });
        const bool byItself = test_support::waitUntil([&] { return ended.load(); }, PATIENCE);
        if (!byItself) {
            worker.rescue();
        }
        destruction.join();
        return byItself;
    }

    void enqueue(const std::string &json)
    {
        event_t *const event = newFakeEvent(simpleEvent(json));
        consumer->enqueueEvent(std::make_shared<EventContainer>(), event);
        event_free(event);
    }
};

/** An event whose rendering, and so its delivery, lasts until it is told to go on. */
class SlowEvent {
public:
    FakeReceivedEvent event(const std::string &json)
    {
        FakeReceivedEvent slow = simpleEvent(json);
        slow.onRender = [this] {
            rendering = true;
            EXPECT_TRUE(test_support::waitUntil([this] { return goingOn.load(); }));
            if (overtaken) {
                throw std::runtime_error("the consumer has gone already");
            }
        };
        return slow;
    }
    [[nodiscard]] bool waitUntilRendering()
    {
        return test_support::waitUntil([this] { return rendering.load(); });
    }
    void goOn() { goingOn = true; }
    /** Lets the delivery end without touching the consumer, which has gone. */
    void giveUp()
    {
        overtaken = true;
        goingOn = true;
    }

private:
    std::atomic<bool> rendering = false;
    std::atomic<bool> goingOn = false;
    std::atomic<bool> overtaken = false;
};

} // namespace

TEST_F(ConsumerInterleavingTest, DestructionEndsWithTheStatusWorkerBetweenItsCheckAndItsWait)
{
    makeConsumer();
    HeldWorker worker(*consumer, Worker::STATUS);
    consumer->start("SN1");
    ASSERT_TRUE(worker.waitUntilHeld());
    EXPECT_TRUE(destructionEnds(worker));
}

TEST_F(ConsumerInterleavingTest, DestructionEndsWithThePublishWorkerBetweenItsCheckAndItsWait)
{
    makeConsumer();
    HeldWorker worker(*consumer, Worker::PUBLISH);
    consumer->start("SN1");
    ASSERT_TRUE(worker.waitUntilHeld());
    EXPECT_TRUE(destructionEnds(worker));
}

TEST_F(ConsumerInterleavingTest,
       ConnectingWithThePublishWorkerBetweenItsCheckAndItsWaitPublishesAtOnce)
{
    makeConsumer();
    enqueue("x");
    auto worker = std::make_unique<HeldWorker>(*consumer, Worker::PUBLISH);
    consumer->start("SN1");
    ASSERT_TRUE(worker->waitUntilHeld());
    consumer->setMessagingStatus(false, true);
    EXPECT_TRUE(bridge.waitForPublications(1));
    consumer.reset();
}

TEST_F(ConsumerInterleavingTest,
       AnEventWithThePublishWorkerBetweenItsCheckAndItsWaitIsPublishedAtOnce)
{
    makeConsumer();
    consumer->setMessagingStatus(false, true);
    auto worker = std::make_unique<HeldWorker>(*consumer, Worker::PUBLISH);
    consumer->start("SN1");
    ASSERT_TRUE(worker->waitUntilHeld());
    enqueue("x");
    EXPECT_TRUE(bridge.waitForPublications(1));
    consumer.reset();
}

TEST_F(ConsumerInterleavingTest, AStatusWithTheStatusWorkerBetweenItsCheckAndItsWaitIsActedUpon)
{
    makeConsumer({"onvif:A"});
    auto worker = std::make_unique<HeldWorker>(*consumer, Worker::STATUS);
    consumer->start("SN1");
    ASSERT_TRUE(worker->waitUntilHeld());
    consumer->setMessagingStatus(true, false);
    EXPECT_TRUE(test_support::waitUntil([] { return filterSubscriptionCount() == 1; }));
    consumer.reset();
}

TEST_F(ConsumerInterleavingTest, ADeliveryUnderWayWhenItsSlotIsFreedIsDiscardedWithTheQueue)
{
    workerConditionOffset(Worker::STATUS);
    makeConsumer({"onvif:Device"});
    std::atomic<int> idle = 0;
    std::atomic<bool> waiting = false;
    syncHooks().beforeWait = [&, &watched = *consumer](const std::condition_variable *condition) {
        idle += isConditionOf(watched, Worker::STATUS, condition) ? 1 : 0;
        waiting = waiting || isWithin(SubscriptionRegistry::instance(), condition);
    };
    setFakeConsumerWaits(false);
    consumer->start("SN1");
    ASSERT_TRUE(test_support::waitUntil([&] { return idle == 1; }));
    activate();
    ASSERT_TRUE(test_support::waitUntil([&] { return idle == 2; }));
    SlowEvent slow;
    const int subscriptionId = filterSubscription().id;
    std::thread delivery([&] { deliverFakeEvent(subscriptionId, slow.event("late")); });
    ASSERT_TRUE(slow.waitUntilRendering());

    // The status worker either waits for the delivery, or is through with its work without it.
    sendStatus("false", "false");
    EXPECT_TRUE(test_support::waitUntil([&] { return waiting || idle == 3; }));
    slow.goOn();
    delivery.join();
    activate(); // comes after all of the deactivation, so connecting finds nothing to publish
    sendStatus("true", "true");
    deliver(simpleEvent("next"));
    ASSERT_TRUE(test_support::waitUntil([&] {
        const auto payloads = bridge.payloads();
        return !payloads.empty() && payloads.back() == "next";
    }));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    consumer.reset();
}

TEST_F(ConsumerInterleavingTest, DestructionWaitsForADeliveryUnderWay)
{
    std::atomic<bool> waiting = false;
    std::atomic<bool> destroyed = false;
    syncHooks().beforeWait = [&](const std::condition_variable *condition) {
        waiting = waiting || isWithin(SubscriptionRegistry::instance(), condition);
    };
    setFakeConsumerWaits(false);
    startConsumer({"onvif:Device"});
    activate();
    SlowEvent slow;
    const int subscriptionId = filterSubscription().id;
    std::thread delivery([&] { deliverFakeEvent(subscriptionId, slow.event("late")); });
    ASSERT_TRUE(slow.waitUntilRendering());

    std::thread destruction([&] {
        consumer.reset();
        destroyed = true;
    });
    EXPECT_TRUE(test_support::waitUntil([&] { return waiting || destroyed; }));
    EXPECT_FALSE(destroyed);
    if (destroyed) {
        slow.giveUp();
    } else {
        slow.goOn();
    }
    delivery.join();
    destruction.join();
}

TEST_F(ConsumerInterleavingTest, UnsubscribingEndsThoughTheLibraryWaitsForADeliveryUnderWay)
{
    startConsumer({"onvif:Device"});
    activate();
    SlowEvent slow;
    const int subscriptionId = filterSubscription().id;
    std::thread delivery([&] { deliverFakeEvent(subscriptionId, slow.event("late")); });
    ASSERT_TRUE(slow.waitUntilRendering());
    deactivate();
    slow.goOn();
    delivery.join();
    activate(); // comes after all of the deactivation, so connecting finds nothing to publish
    sendStatus("true", "true");
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
}

TEST_F(ConsumerInterleavingTest, DestructionEndsThoughTheLibraryWaitsForADeliveryUnderWay)
{
    startConsumer({"onvif:Device"});
    activate();
    SlowEvent slow;
    const int subscriptionId = filterSubscription().id;
    std::thread delivery([&] { deliverFakeEvent(subscriptionId, slow.event("late")); });
    ASSERT_TRUE(slow.waitUntilRendering());
    std::thread destruction([&] { consumer.reset(); });
    EXPECT_TRUE(
        test_support::waitUntil([] { return !recordedCalls({"event_consumer_free"}).empty(); }));
    slow.goOn();
    delivery.join();
    destruction.join();
}

} // namespace tovrel::test
