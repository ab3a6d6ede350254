/** Calls from several threads and from callbacks. */
#include "event_handles.h"
#include "event_service_fixture.h"
#include "recorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace event_test {
namespace {

using test_support::waitUntil;

/** A callback that stays until it is let go. */
class Gate {
public:
    void pass()
    {
        std::unique_lock guard(mutex);
        ++inside;
        changed.notify_all();
        changed.wait(guard, [this] { return isOpen; });
        ++passed;
    }
    bool waitInside()
    {
        std::unique_lock guard(mutex);
        return changed.wait_for(guard, test_support::DEADLINE, [this] { return inside > passed; });
    }
    void open()
    {
        const std::lock_guard guard(mutex);
        isOpen = true;
        changed.notify_all();
    }
    int count()
    {
        const std::lock_guard guard(mutex);
        return passed;
    }

private:
    std::mutex mutex; // guards all
    std::condition_variable changed;
    int inside = 0;
    int passed = 0;
    bool isOpen = false;
};

void passGate(event_t *event, void *gate)
{
    event_free(event);
    static_cast<Gate *>(gate)->pass();
}

class Threads : public EventServiceTest {
protected:
    ConsumerPtr consumer = newConsumer();
    ProducerPtr producer = newProducer();
    int id = event_producer_declare(producer.get(), numberDeclaration().get());
};

TEST_F(Threads, UnsubscribingWaitsForTheCallbackThatIsUnderWay)
{
    Gate gate;
    const int subscription =
        event_consumer_subscribe(consumer.get(), whereValue().get(), passGate, &gate);
    ASSERT_TRUE(sendNumber(producer.get(), id, 1));
    ASSERT_TRUE(sendNumber(producer.get(), id, 2));
    ASSERT_TRUE(gate.waitInside());
    std::atomic<bool> returned{false};
    std::thread other([&] {
        EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), subscription, 0));
        EXPECT_EQ(gate.count(), 1); // the callback has ended
        returned = true;
    });
    // that it does not return can only be watched for a while
    EXPECT_FALSE(waitUntil([&] { return returned.load(); }, std::chrono::milliseconds(100)));
    gate.open();
    other.join();
    EXPECT_TRUE(returned);
    Recorder recorder;
    recorder.subscribe(consumer.get());
    ASSERT_TRUE(sendNumber(producer.get(), id, 3));
    ASSERT_TRUE(recorder.waitForNumber(3));
    EXPECT_EQ(gate.count(), 1);
}

TEST_F(Threads, UnsubscribingAnotherSubscriptionDoesNotWaitForACallback)
{
    Gate gate;
    event_consumer_subscribe(consumer.get(), whereValue().get(), passGate, &gate);
    const int idle =
        event_consumer_subscribe(consumer.get(), whereValue("number", "9").get(), passGate, &gate);
    ASSERT_TRUE(sendNumber(producer.get(), id, 1));
    ASSERT_TRUE(gate.waitInside());
    EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), idle, 0));
    EXPECT_EQ(gate.count(), 0);
    gate.open();
    consumer.reset(); // before the gate goes
}

/** What a callback does to the subscriptions of its own consumer. */
struct SelfChange {
    event_consumer_t *consumer = nullptr;
    std::atomic<int> own{-1};
    std::atomic<int> calls{0};
    std::atomic<int> subscribed{-1};
    Recorder recorder;
};

TEST_F(Threads, ACallbackMayEndItsOwnSubscriptionAndMakeAnother)
{
    SelfChange change;
    change.consumer = consumer.get();
    const auto callback = [](event_t *event, void *data) {
        event_free(event);
        auto *self = static_cast<SelfChange *>(data);
        ++self->calls;
        EXPECT_TRUE(waitUntil([&] { return self->own >= 0; }));
        EXPECT_TRUE(event_consumer_unsubscribe(self->consumer, self->own, 0));
        self->subscribed = self->recorder.subscribe(self->consumer);
    };
    const int own = event_consumer_subscribe(consumer.get(), whereValue().get(), callback, &change);
    change.own = own;
    ASSERT_TRUE(sendNumber(producer.get(), id, 1));
    ASSERT_TRUE(waitUntil([&] { return change.subscribed >= 0; }));
    ASSERT_TRUE(sendNumber(producer.get(), id, 2));
    ASSERT_TRUE(change.recorder.waitForNumber(2));
    EXPECT_EQ(change.calls, 1);
    EXPECT_NE(change.subscribed, own);
}

TEST_F(Threads, AfterFreeingAConsumerNoCallbackRuns)
{
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> calls{0};
        const auto callback = [](event_t *event, void *count) {
            event_free(event);
            ++*static_cast<std::atomic<int> *>(count);
        };
        ConsumerPtr brief = newConsumer();
        event_consumer_subscribe(brief.get(), whereValue().get(), callback, &calls);
        for (int number = 0; number < 50; ++number) {
            ASSERT_TRUE(sendNumber(producer.get(), id, number));
        }
        brief.reset();
        const int atTheEnd = calls;
        ASSERT_TRUE(sendNumber(producer.get(), id, 1));
        EXPECT_EQ(calls, atTheEnd);
    }
}

TEST_F(Threads, ABlockedCallbackDelaysNeitherSendersNorOtherConsumers)
{
    Gate gate;
    event_consumer_subscribe(consumer.get(), whereValue().get(), passGate, &gate);
    ASSERT_TRUE(sendNumber(producer.get(), id, 0));
    ASSERT_TRUE(gate.waitInside());
    const ConsumerPtr other = newConsumer();
    Recorder recorder;
    recorder.subscribe(other.get());
    for (int number = 1; number <= 1000; ++number) {
        ASSERT_TRUE(sendNumber(producer.get(), id, number));
    }
    EXPECT_TRUE(recorder.waitForNumber(1000));
    EXPECT_EQ(recorder.count(), 1000U);
    EXPECT_EQ(gate.count(), 0);
    gate.open();
    EXPECT_TRUE(waitUntil([&] { return gate.count() == 1001; }));
    consumer.reset(); // before the gate goes
}

TEST_F(Threads, ManyThreadsMaySendDeclareAndSubscribeAtOnce)
{
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 100;
    Recorder everything;
    everything.subscribe(consumer.get(), whereValue("topic0", "Shared"));
    const int shared = event_producer_declare(producer.get(), numberDeclaration("Shared").get());
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < ROUNDS; ++round) {
                Recorder own;
                EXPECT_TRUE(sendNumber(producer.get(), shared, round));
                const int mine =
                    event_producer_declare(producer.get(), propertyDeclaration("Mine").get());
                EXPECT_GE(mine, 0);
                EXPECT_TRUE(sendNumber(producer.get(), mine, round));
                const int subscription =
                    own.subscribe(consumer.get(), whereValue("topic0", "Mine"));
                EXPECT_GE(subscription, 0);
                EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), subscription, 0));
                EXPECT_TRUE(event_producer_undeclare(producer.get(), mine));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(everything.waitFor(static_cast<std::size_t>(THREADS) * ROUNDS));
}

TEST_F(Threads, TheDaemonMayDieAtAnyMomentOfAnyCall)
{
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            while (!stop) {
                Recorder own;
                const int mine =
                    event_producer_declare(producer.get(), propertyDeclaration("Mine").get());
                EXPECT_GE(mine, 0);
                sendNumber(producer.get(), mine, 1);
                const int subscription = own.subscribe(consumer.get());
                EXPECT_GE(subscription, 0);
                EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), subscription, 0));
                EXPECT_TRUE(event_producer_undeclare(producer.get(), mine));
            }
        });
    }
    for (int round = 0; round < 5; ++round) {
        crashDaemon();
        restartDaemon();
    }
    stop = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    Recorder recorder;
    ASSERT_GE(recorder.subscribe(consumer.get(), whereValue("topic0", "Number")), 0);
    ASSERT_TRUE(
        waitUntil([&] { return sendNumber(producer.get(), id, 77) && recorder.count() > 0; }));
    EXPECT_EQ(recorder.all().front().number, 77);
}

} // namespace
} // namespace event_test
