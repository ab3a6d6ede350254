/**
 * Callbacks that are still on their way when the consumer goes, with a library that does not wait
 * for them; and a consumer that goes while the library lets it wait.
 */
#include "events/living_handlers.h"
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/held_worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <thread>

namespace tovrel::test {

namespace {

/** Where one thread stops until another lets it go on. Only the first that comes is stopped. */
class Gate {
public:
    void pass()
    {
        if (!reached.exchange(true)) {
            EXPECT_TRUE(test_support::waitUntil([this] { return opened.load(); }));
        }
    }
    [[nodiscard]] bool waitUntilReached() const
    {
        return test_support::waitUntil([this] { return reached.load(); });
    }
    void open() { opened = true; }

private:
    std::atomic<bool> reached = false;
    std::atomic<bool> opened = false;
};

class ConsumerLateCallbacksTest : public ConsumerTest {
protected:
    void SetUp() override
    {
        ConsumerTest::SetUp();
        setFakeConsumerWaits(false);
    }
    void TearDown() override
    {
        ConsumerTest::TearDown();
        syncHooks() = {};
    }

    /** A thread on which a subscription's callback gets an event. */
    static std::thread callBack(const FakeSubscription &subscription, FakeReceivedEvent event)
    {
        return std::thread([subscription, event = std::move(event)] {
            subscription.callback(newFakeEvent(event), subscription.userData);
        });
    }
};

} // namespace

TEST_F(ConsumerLateCallbacksTest, ADeliveryThatHasNotReadItsSlotYetFindsNoConsumer)
{
    startConsumer({"onvif:Device"});
    activate(true);
    Gate gate;
    FakeReceivedEvent event = simpleEvent("late");
    event.onInternalCheck = [&gate] { gate.pass(); };
    std::thread delivery = callBack(filterSubscription(), event);
    ASSERT_TRUE(gate.waitUntilReached());
    consumer.reset();
    gate.open();
    delivery.join();
    EXPECT_TRUE(recordedCalls({"event_get_json"}).empty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(ConsumerLateCallbacksTest, AStatusThatHasNotFoundItsConsumerYetFindsNone)
{
    makeConsumer();
    Gate gate;
    std::atomic<std::thread::id> calledBack;
    const auto *const first = reinterpret_cast<const char *>(consumer.get());
    syncHooks().beforeLock = [&, first](const pthread_mutex_t *mutex) {
        const auto *const wanted = reinterpret_cast<const char *>(mutex);
        const bool ofConsumer = wanted >= first && wanted < first + sizeof(EventConsumerHandler);
        if (std::this_thread::get_id() == calledBack &&
            (ofConsumer || isWithin(LivingHandlers::instance(), mutex))) {
            gate.pass();
        }
    };
    consumer->start("SN1");
    const auto subscription = fakeSubscriptions().at(0);
    std::thread status([&] {
        calledBack = std::this_thread::get_id();
        subscription.callback(newFakeEvent(statusEvent("true", "true")), subscription.userData);
    });
    ASSERT_TRUE(gate.waitUntilReached());
    consumer.reset();
    gate.open();
    status.join();
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(ConsumerLateCallbacksTest, AStatusAfterItsConsumerHasGoneIsDropped)
{
    startConsumer();
    const auto subscription = fakeSubscriptions().at(0);
    consumer.reset();
    resetCalls();
    subscription.callback(newFakeEvent(statusEvent("true", "true")), subscription.userData);
    EXPECT_TRUE(recordedCalls({"event_get_value"}).empty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(ConsumerLateCallbacksTest, DestructionWaitsForAStatusUnderWay)
{
    makeConsumer();
    Gate gate;
    std::atomic<bool> waiting = false;
    std::atomic<bool> destroyed = false;
    std::atomic<std::thread::id> calledBack;
    syncHooks().beforeLock = [&, &watched = *consumer](const pthread_mutex_t *mutex) {
        if (std::this_thread::get_id() == calledBack && isWithin(watched, mutex)) {
            gate.pass();
        }
    };
    syncHooks().beforeWait = [&](const std::condition_variable *condition) {
        waiting = waiting || isWithin(LivingHandlers::instance(), condition);
    };
    consumer->start("SN1");
    const auto subscription = fakeSubscriptions().at(0);
    std::thread status([&] {
        calledBack = std::this_thread::get_id();
        subscription.callback(newFakeEvent(statusEvent("true", "true")), subscription.userData);
    });
    ASSERT_TRUE(gate.waitUntilReached());
    std::thread destruction([&] {
        consumer.reset();
        destroyed = true;
    });
    EXPECT_TRUE(test_support::waitUntil([&] { return waiting || destroyed; }));
    EXPECT_FALSE(destroyed);
    gate.open();
    status.join();
    destruction.join();
}

namespace {

/** Destroys a consumer while one call of the event service for its filters is under way. */
class ConsumerEndTest : public ConsumerLateCallbacksTest {
protected:
    void SetUp() override
    {
        ConsumerLateCallbacksTest::SetUp();
        makeConsumer({"onvif:A", "onvif:B", "onvif:C", "onvif:D"});
        syncHooks().afterNotify = [this,
                                   &watched = *consumer](const std::condition_variable *condition) {
            if (destroying && isConditionOf(watched, Worker::PUBLISH, condition)) {
                gate.open(); // the destructor is well under way
            }
        };
        consumer->start("SN1");
    }

    void destroyDuringNextCall(const char *active)
    {
        setFakeConsumerHook([this] { gate.pass(); });
        sendStatus(active, "false");
        ASSERT_TRUE(gate.waitUntilReached());
        destroying = true;
        consumer.reset();
    }

    Gate gate;
    std::atomic<bool> destroying = false;
};

} // namespace

TEST_F(ConsumerEndTest, WaitsForOneSubscriptionAtMost)
{
    resetCalls();
    destroyDuringNextCall("true");
    EXPECT_EQ(subscriptionCalls(), Calls{"event_consumer_subscribe 1 topic0=tns1:A !topic1"});
    EXPECT_EQ(recordedCalls({"event_consumer_free"}).size(), 1U);
}

TEST_F(ConsumerEndTest, WaitsForOneUnsubscriptionAtMost)
{
    activate();
    resetCalls();
    destroyDuringNextCall("false");
    EXPECT_EQ(subscriptionCalls(), Calls{"event_consumer_unsubscribe 1 0"});
    EXPECT_EQ(recordedCalls({"event_consumer_free"}).size(), 1U);
}

} // namespace tovrel::test
