#include "platform/mqtt/fixture.h"
#include "platform/mqtt/name_lookup.h"

#include <dirent.h>

#include <algorithm>
#include <thread>

namespace mqtt_test {
namespace {

using namespace std::chrono_literals;
using test_support::waitUntil;

using MqttLifecycleTest = MqttTest;

/** Entries of a folder of /proc/self: open descriptors, threads. */
std::size_t entries(const char *folder)
{
    DIR *directory = opendir(folder);
    std::size_t count = 0;
    while (readdir(directory) != nullptr) { // NOLINT(concurrency-mt-unsafe): its own stream
        ++count;
    }
    closedir(directory);
    return count;
}

TEST_F(MqttLifecycleTest, CanBeDeletedWithoutHavingBeenInitialised)
{
    const TestClient unused;
    EXPECT_NE(unused.handle, nullptr);
}

TEST_F(MqttLifecycleTest, CanBeDeletedAtAnyMomentOfConnecting)
{
    Broker broker;
    configure(broker.port());
    for (int i = 0; i < 60; ++i) {
        TestClient client;
        client.init();
        client.subscribe("a/#");
        client.publish("a/b", "x", i % 3);
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(i * 50);
        while (std::chrono::steady_clock::now() < end) {
        }
    }
}

TEST_F(MqttLifecycleTest, CanBeDeletedWithAFullQueueAndAFrozenBroker)
{
    Broker broker;
    configure(broker.port(), "", "[queue]\nmessages=1000\n");
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    broker.freeze();
    while (client.publish("a", std::string(10'000, 'x'), 1).code == MQTTMSG_OK) {
    }
    const auto begin = std::chrono::steady_clock::now();
    client.remove();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 900ms);
    broker.resume();
}

TEST_F(MqttLifecycleTest, CanBeDeletedWithMessagesWaitingForTheMainLoop)
{
    Broker broker;
    configure(broker.port(), "", "[queue]\ninbound-messages=50\n");
    TestClient client;
    client.init();
    client.subscribe("a");
    ASSERT_TRUE(hears(broker, client, "a"));
    client.received.clear();
    broker.publish({"-t", "a", "-m", "x", "-q", "1", "--repeat", "500"});
    client.remove();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_TRUE(client.received.empty());
}

TEST_F(MqttLifecycleTest, CanBeDeletedWithinTheMessageCallback)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    client.init();
    client.subscribe("a");
    ASSERT_TRUE(hears(broker, client, "a"));
    client.received.clear();
    client.onMessage = [&] { client.remove(); };
    broker.publish({"-t", "a", "-m", "x", "-q", "1", "--repeat", "20"});
    ASSERT_TRUE(pumpUntil([&] { return client.handle == nullptr; }));
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(client.received.size(), 1U);
}

TEST_F(MqttLifecycleTest, CallingBackIntoTheLibraryFromTheCallbackIsAllowed)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    client.init();
    client.subscribe("ask");
    client.subscribe("answer");
    ASSERT_TRUE(hears(broker, client, "ask"));
    client.onMessage = [&] {
        if (client.received.back().topic == "ask") {
            client.unsubscribe("ask");
            client.publish("answer", "42", 2);
        }
    };
    broker.publish({"-t", "ask", "-m", "?"});
    const Received answer{"answer", false, "42"};
    EXPECT_TRUE(pumpUntil([&] { return client.received.back() == answer; }));
}

TEST_F(MqttLifecycleTest, ALookupThatHangsBlocksNobody)
{
    configure(1883, "host=slow.test");
    const SlowLookup slow;
    // With a program's first thread, a sanitizer starts one of its own that stays.
    std::thread([] {}).join();
    const std::size_t threadsBefore = entries("/proc/self/task");
    TestClient client;
    ASSERT_EQ(client.init(), MQTTMSG_OK);
    ASSERT_TRUE(waitUntil([&] { return SlowLookup::waiting() == 1; }));
    EXPECT_EQ(client.publish("a", "x").code, MQTTMSG_OK);
    EXPECT_EQ(client.subscribe("a").code, MQTTMSG_OK);
    const auto begin = std::chrono::steady_clock::now();
    client.remove();
    const auto duration = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(duration, 900ms);
    EXPECT_LT(duration, 3s);
    SlowLookup::release();
    EXPECT_TRUE(waitUntil([&] { return entries("/proc/self/task") <= threadsBefore; }));
}

TEST_F(MqttLifecycleTest, AThousandHandlesLeaveNothingBehind)
{
    Broker broker({"allow_anonymous true", "log_type none"});
    configure(broker.port());
    const auto cycle = [] {
        TestClient client;
        client.init();
        client.publish("a", "x", 1);
    };
    cycle();
    const std::size_t descriptors = entries("/proc/self/fd");
    const std::size_t threads = entries("/proc/self/task");
    for (int i = 0; i < 1000; ++i) {
        cycle();
    }
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    EXPECT_TRUE(waitUntil([&] { return entries("/proc/self/task") <= threads; }));
    EXPECT_EQ(FakeEventService::producers(), 0);
}

TEST_F(MqttLifecycleTest, ManyThreadsMayUseAHandleAtOnce)
{
    Broker broker;
    configure(broker.port(), "", "[queue]\nmessages=100000\n");
    TestClient client;
    client.init();
    Subscriber subscriber(broker, "from/#");
    ASSERT_TRUE(connected());
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            const std::string topic = "from/" + std::to_string(number);
            for (int i = 0; i < 500; ++i) {
                EXPECT_EQ(client.publish(topic, std::to_string(i), i % 2).code, MQTTMSG_OK);
                EXPECT_EQ(client.subscribe(topic, 0).code, MQTTMSG_OK);
                EXPECT_EQ(client.unsubscribe(topic).code, MQTTMSG_OK);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(pumpUntil([&] { return subscriber.count() == 2000; })) << subscriber.count();
}

} // namespace
} // namespace mqtt_test
