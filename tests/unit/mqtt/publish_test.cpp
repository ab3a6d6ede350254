#include "fakes/call_record.h"
#include "fakes/fake_mqtt.h"
#include "unit/mqtt/running_bridge.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>

namespace tovrel::test {

namespace {

constexpr auto DEADLINE = std::chrono::seconds(30);

class PublishTest : public RunningBridgeTest {
protected:
    void publish() { bridge->publish("t", false, "p", 1, 0, false); }

    /** Whether another thread can publish now. */
    bool canPublishElsewhere()
    {
        auto published = std::async(std::launch::async, [&] { publish(); });
        return published.wait_for(DEADLINE) == std::future_status::ready;
    }
};

} // namespace

TEST_F(PublishTest, HandsEverythingToTheClient)
{
    whileRunning([&] {
        bridge->publish("a/b", true, "payload and more", 7, 2, true);
        bridge->publish("c", false, "", 0, 0, false);
        EXPECT_EQ(recordedCalls(),
                  (Calls{"MQTTMsg_publish a/b 1 payload 2 1", "MQTTMsg_publish c 0  0 0"}));
    });
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublishTest, PayloadsMayContainNulBytes)
{
    whileRunning([&] {
        const std::string payload("a\0b", 3);
        bridge->publish("t", false, payload.data(), payload.size(), 0, false);
        EXPECT_EQ(recordedCalls(), Calls{"MQTTMsg_publish t 0 " + payload + " 0 0"});
    });
}

TEST_F(PublishTest, ARefusalIsLoggedAsProgressAndNotRepeated)
{
    whileRunning([&] {
        failCall("MQTTMsg_publish", 1);
        fakeMqtt().failureResult = 6;
        fakeMqtt().failureText = "queue is full";
        publish();
        EXPECT_EQ(recordedCalls().size(), 1U);
        EXPECT_EQ(log.take(), Lines{progressLine("Got response code 6 when publishing MQTT "
                                                 "message: queue is full")});
        publish();
        EXPECT_EQ(log.take(), Lines());
    });
}

TEST_F(PublishTest, ARefusalWithoutATextIsLoggedToo)
{
    whileRunning([&] {
        failCall("MQTTMsg_publish", 1);
        fakeMqtt().failureText.reset();
        publish();
    });
    EXPECT_EQ(log.take(),
              Lines{progressLine("Got response code 9 when publishing MQTT message: ")});
}

TEST_F(PublishTest, BeforeTheClientExistsNothingIsPublished)
{
    publish();
    EXPECT_EQ(log.take(), Lines{failureLine("No MQTT handler, cannot publish")});
    EXPECT_EQ(recordedCalls(), Calls());
}

TEST_F(PublishTest, AfterQuittingNothingIsPublished)
{
    whileRunning([] {});
    log.take();
    resetCalls();
    publish();
    EXPECT_EQ(log.take(), Lines{failureLine("No MQTT handler, cannot publish")});
    EXPECT_EQ(recordedCalls(), Calls());
}

TEST_F(PublishTest, NoLockIsHeldWhileARefusalIsLogged)
{
    bool couldPublish = false;
    whileRunning([&] {
        failCall("MQTTMsg_publish", 1);
        log.onLine = [&] { couldPublish = canPublishElsewhere(); };
        publish();
        log.onLine = nullptr;
    });
    EXPECT_TRUE(couldPublish);
}

TEST_F(PublishTest, NoLockIsHeldWhileARefusedSubscriptionIsLogged)
{
    int count = 0;
    whileRunning([&] {
        SubscriptionStore store;
        store.addSubscription("a", false, 0, false);
        bridge->getSubscriptions() = store;
        failCall("MQTTMsg_unsubscribe", 1);
        failCall("MQTTMsg_subscribe", 1);
        log.onLine = [&] { count += canPublishElsewhere() ? 1 : 0; };
        bridge->replaceSubscriptions(store);
        log.onLine = nullptr;
    });
    EXPECT_EQ(count, 2);
}

TEST_F(PublishTest, CallsFromTwoThreadsNeverOverlapInTheClient)
{
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    fakeMqtt().onPublish = [&] {
        overlapped = overlapped || ++inside > 1;
        std::this_thread::yield();
        --inside;
    };
    whileRunning([&] {
        auto other = std::async(std::launch::async, [&] {
            for (int count = 0; count < 500; ++count) {
                publish();
            }
        });
        for (int count = 0; count < 500; ++count) {
            publish();
        }
        other.get();
        EXPECT_EQ(recordedCalls().size(), 1000U);
    });
    EXPECT_FALSE(overlapped);
}

TEST_F(PublishTest, APublisherUnderWayNeverMeetsADeletedClient)
{
    std::atomic<bool> finish = false;
    std::future<void> publisher;
    std::promise<void> firstPublished;
    std::atomic<bool> first = true;
    fakeMqtt().onPublish = [&] {
        if (first.exchange(false)) {
            firstPublished.set_value();
        }
    };
    whileRunning([&] {
        publisher = std::async(std::launch::async, [&] {
            while (!finish) {
                publish();
            }
        });
        ASSERT_EQ(firstPublished.get_future().wait_for(DEADLINE), std::future_status::ready);
    });
    finish = true;
    publisher.get();
    for (const LogLine &line : log.take()) {
        EXPECT_EQ(line, failureLine("No MQTT handler, cannot publish"));
    }
    EXPECT_EQ(recordedCalls({"MQTTMsg_delete"}).size(), 1U);
}

} // namespace tovrel::test
