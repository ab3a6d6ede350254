#include "platform/mqtt/fixture.h"
#include "platform/mqtt/reluctant_broker.h"

#include <sys/mman.h>

#include <algorithm>
#include <fstream>
#include <set>

namespace mqtt_test {
namespace {

using test_support::waitUntil;

using MqttPublishTest = MqttTest;

/** Memory of the process that is in use, in KiB. */
long residentKiB()
{
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return resident * 4;
}

TEST_F(MqttPublishTest, WithoutAHandleOrArgumentsItIsRefused)
{
    char *text = nullptr;
    EXPECT_EQ(MQTTMsg_new2(nullptr, nullptr), nullptr);
    EXPECT_EQ(MQTTMsg_init(nullptr, 0), MQTTMSG_INVALID_ARGUMENT);
    EXPECT_EQ(MQTTMsg_publish(nullptr, "a", false, "x", 1, 0, false, &text),
              MQTTMSG_INVALID_ARGUMENT);
    EXPECT_STREQ(text, "The handle, topic or payload is NULL");
    free(text);
    EXPECT_EQ(MQTTMsg_subscribe(nullptr, "a", 0, false, nullptr), MQTTMSG_INVALID_ARGUMENT);
    EXPECT_EQ(MQTTMsg_unsubscribe(nullptr, "a", false, nullptr), MQTTMSG_INVALID_ARGUMENT);
    MQTTMsg_delete(nullptr);

    TestClient client;
    EXPECT_EQ(MQTTMsg_publish(client.handle, "a", false, nullptr, 1, 0, false, nullptr),
              MQTTMSG_INVALID_ARGUMENT);
    EXPECT_EQ(client.publish("a", "x").code, MQTTMSG_NOT_INITIALISED);
    EXPECT_EQ(client.subscribe("a").code, MQTTMSG_NOT_INITIALISED);
    EXPECT_EQ(client.unsubscribe("a").code, MQTTMSG_NOT_INITIALISED);
    EXPECT_EQ(MQTTMsg_init(client.handle, 1), MQTTMSG_INVALID_ARGUMENT);
}

TEST_F(MqttPublishTest, ASecondInitIsRefused)
{
    configure(freePort());
    TestClient client;
    EXPECT_EQ(client.init(), MQTTMSG_OK);
    EXPECT_EQ(client.init(), MQTTMSG_FAILED);
}

TEST_F(MqttPublishTest, SwitchedOffBySettingsItRefusesEverythingAndConnectsNowhere)
{
    Broker broker;
    configure(broker.port(), "", "[client]\nactive=false\n");
    TestClient client;
    EXPECT_EQ(client.init(), MQTTMSG_OK);
    const Outcome refused = client.publish("a", "x");
    EXPECT_EQ(refused.code, MQTTMSG_INACTIVE);
    EXPECT_EQ(refused.text, "MQTT is switched off in the settings");
    EXPECT_EQ(client.subscribe("a").code, MQTTMSG_INACTIVE);
    EXPECT_EQ(client.unsubscribe("a").code, MQTTMSG_INACTIVE);
    client.remove();
    EXPECT_EQ(broker.log().find("New client connected"), std::string::npos);
}

struct Lethal {
    std::string topic;
    int qos;
    bool usePrefix;
    int code;
    std::string text;
};

TEST_F(MqttPublishTest, WhatABrokerWouldEndTheConnectionForNeverReachesIt)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    const std::string prefix = "norq/TEST-1/";
    const std::vector<Lethal> lethals{
        {"", 0, false, MQTTMSG_INVALID_TOPIC, "The topic is empty"},
        {"", 0, true, MQTTMSG_INVALID_TOPIC, "The topic is empty"},
        {"a/#", 1, false, MQTTMSG_INVALID_TOPIC, "The topic contains a wildcard"},
        {"a/+/b", 1, true, MQTTMSG_INVALID_TOPIC, "The topic contains a wildcard"},
        {"\xff\xfe", 1, false, MQTTMSG_INVALID_TOPIC,
         "The topic is not valid UTF-8 or contains control characters"},
        {"\xed\xa0\x80", 1, false, MQTTMSG_INVALID_TOPIC,
         "The topic is not valid UTF-8 or contains control characters"},
        {"a\x01", 1, false, MQTTMSG_INVALID_TOPIC,
         "The topic is not valid UTF-8 or contains control characters"},
        {std::string(65536, 'a'), 1, false, MQTTMSG_TOO_LARGE,
         "The topic has 65536 bytes, at most 65535 are allowed"},
        {std::string(65536 - prefix.size(), 'a'), 1, true, MQTTMSG_TOO_LARGE,
         "The topic has 65536 bytes, at most 65535 are allowed"},
        {std::string(201, '/'), 1, false, MQTTMSG_INVALID_TOPIC,
         "The topic has too many levels, at most 201 are allowed"},
        {"a", 3, false, MQTTMSG_INVALID_ARGUMENT, "The QoS is 3, it must be 0, 1 or 2"},
        {"a", -1, false, MQTTMSG_INVALID_ARGUMENT, "The QoS is -1, it must be 0, 1 or 2"},
    };
    for (const Lethal &lethal : lethals) {
        const Outcome refused = client.publish(lethal.topic, "x", lethal.qos, lethal.usePrefix);
        EXPECT_EQ(refused.code, lethal.code) << lethal.topic.substr(0, 20);
        EXPECT_EQ(refused.text, lethal.text);
    }
    Subscriber subscriber(broker, "#");
    EXPECT_EQ(client.publish(std::string(200, '/'), "deepest", 1).code, MQTTMSG_OK);
    EXPECT_EQ(client.publish(std::string(65535, 'a'), "longest", 1).code, MQTTMSG_OK);
    EXPECT_TRUE(waitUntil([&] { return subscriber.count() == 2; }));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

TEST_F(MqttPublishTest, APayloadOverTheLimitsIsRefused)
{
    configure(freePort(), "", "[queue]\nbytes=1073741824\n");
    TestClient client;
    client.init();
    constexpr std::size_t LIMIT = 268'435'455;
    // Address space only: a refused payload is never looked at.
    void *payload = mmap(nullptr, LIMIT, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(payload, MAP_FAILED);
    char *text = nullptr;
    EXPECT_EQ(MQTTMsg_publish(client.handle, "abc", false, static_cast<char *>(payload),
                              LIMIT - 2 - 3 + 1, 0, false, &text),
              MQTTMSG_TOO_LARGE);
    EXPECT_STREQ(text, "The payload has 268435451 bytes, at most 268435450 are allowed with this "
                       "topic");
    free(text);
    EXPECT_EQ(MQTTMsg_publish(client.handle, "abc", false, static_cast<char *>(payload),
                              LIMIT - 2 - 3 - 2 + 1, 1, false, nullptr),
              MQTTMSG_TOO_LARGE);
    munmap(payload, LIMIT);
}

TEST_F(MqttPublishTest, AMessageLargerThanTheWholeQueueIsTooLarge)
{
    configure(freePort(), "", "[queue]\nbytes=65536\n");
    TestClient client;
    client.init();
    const Outcome refused = client.publish("a", std::string(65536, 'x'));
    EXPECT_EQ(refused.code, MQTTMSG_TOO_LARGE);
    EXPECT_EQ(refused.text, "The message has 65537 bytes, the settings allow 65536");
    EXPECT_EQ(client.publish("a", std::string(65535, 'x')).code, MQTTMSG_OK);
    const Outcome full = client.publish("a", "");
    EXPECT_EQ(full.code, MQTTMSG_QUEUE_FULL);
    EXPECT_EQ(full.text, "The queue is full: 65536 of 65536 bytes are taken");
}

class MqttOfflineTest : public MqttTest, public testing::WithParamInterface<int> {};

TEST_P(MqttOfflineTest, KeepsAsManyMessagesAsTheBoundSaysAndSendsTheRefusedNever)
{
    Broker broker({"allow_anonymous true", "persistence true", "persistence_location FOLDER/",
                   "queue_qos0_messages true", "max_queued_messages 0"});
    // The broker knows the subscription before the client can reach it.
    const std::vector<std::string> session{"-q", "2", "-c", "-i", "reader"};
    std::make_unique<Subscriber>(broker, "#", session).reset();
    broker.terminate();
    configure(broker.port(), "", "[queue]\nmessages=500\n");
    TestClient client;
    client.init();
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(client.publish("kept", std::to_string(i), GetParam()).code, MQTTMSG_OK);
    }
    for (int i = 0; i < 50; ++i) {
        const Outcome refused = client.publish("refused", std::to_string(i), GetParam());
        ASSERT_EQ(refused.code, MQTTMSG_QUEUE_FULL);
        ASSERT_EQ(refused.text, "The queue is full: 500 messages are waiting");
    }
    broker.start();
    const Subscriber subscriber(broker, "#", session);
    ASSERT_TRUE(waitUntil([&] { return client.publish("end", "", GetParam()).code == 0; }));
    ASSERT_TRUE(waitUntil([&] {
        const auto messages = subscriber.messages();
        return !messages.empty() && messages.back().starts_with("end");
    }));
    const auto messages = subscriber.messages();
    ASSERT_EQ(messages.size(), 501U);
    for (std::size_t i = 0; i < 500; ++i) {
        EXPECT_EQ(messages[i], "kept " + std::to_string(GetParam()) + " 0 " + std::to_string(i));
    }
}

INSTANTIATE_TEST_SUITE_P(ForEachQos, MqttOfflineTest, testing::Values(0, 1, 2));

class MqttFrozenTest : public MqttTest, public testing::WithParamInterface<int> {};

TEST_P(MqttFrozenTest, MemoryStaysBoundedWhileTheBrokerTakesNothing)
{
    Broker broker;
    configure(broker.port(), "", "[queue]\nmessages=2000\n");
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    broker.freeze();
    const long before = residentKiB();
    const std::string payload(4000, 'x');
    int accepted = 0;
    int refused = 0;
    for (int i = 0; i < 50'000; ++i) {
        const int code = client.publish("flood", payload, GetParam()).code;
        accepted += code == MQTTMSG_OK ? 1 : 0;
        refused += code == MQTTMSG_QUEUE_FULL ? 1 : 0;
    }
    EXPECT_EQ(accepted + refused, 50'000);
    // Beyond the bound itself only what the kernel took of QoS 0 for the frozen broker.
    EXPECT_GE(accepted, 2000);
    EXPECT_LT(accepted, 5000);
    EXPECT_LT(residentKiB() - before, 64 * 1024);
    broker.resume();
    EXPECT_TRUE(waitUntil([&] { return client.publish("end", "", GetParam()).code == 0; }));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

INSTANTIATE_TEST_SUITE_P(ForEachQos, MqttFrozenTest, testing::Values(0, 1, 2));

TEST_F(MqttPublishTest, ARestartOfTheBrokerLosesNothingOfAPersistentSession)
{
    Broker broker({"allow_anonymous true", "persistence true", "persistence_location FOLDER/",
                   "max_queued_messages 0"});
    configure(broker.port(), "clean-session=false", "[queue]\nmessages=20000\n");
    auto subscriber = std::make_unique<Subscriber>(
        broker, "load/#", std::vector<std::string>{"-q", "2", "-c", "-i", "collector"});
    TestClient client;
    client.init();
    client.subscribe("back/#", 2);
    ASSERT_TRUE(connected());
    ASSERT_TRUE(hears(broker, client, "back/first"));
    constexpr int COUNT = 6000;
    for (int i = 0; i < COUNT; ++i) {
        ASSERT_EQ(
            client.publish("load/" + std::to_string(i % 7), std::to_string(i), 1 + i % 2).code,
            MQTTMSG_OK);
        if (i == COUNT / 2) {
            ASSERT_TRUE(waitUntil([&] { return subscriber->count() > 10; }));
            broker.terminate();
        }
    }
    ASSERT_TRUE(logged(G_LOG_LEVEL_WARNING, "MQTT: disconnected from"));
    broker.start();
    ASSERT_TRUE(connected(2));
    const auto all = [&] {
        std::set<std::string> payloads;
        for (const std::string &line : subscriber->messages()) {
            payloads.insert(line.substr(line.rfind(' ') + 1));
        }
        return payloads.size();
    };
    EXPECT_TRUE(pumpUntil([&] { return all() == COUNT; })) << all();
    EXPECT_TRUE(hears(broker, client, "back/again"));
}

TEST_F(MqttPublishTest, PlacesOfMessagesThatABrokenConnectionLostAreGivenBack)
{
    Broker broker;
    configure(broker.port(), "", "[queue]\nmessages=300\n");
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    broker.freeze();
    const std::string payload(20'000, 'x');
    while (client.publish("a", payload).code == MQTTMSG_OK) {
    }
    broker.kill();
    ASSERT_TRUE(logged(G_LOG_LEVEL_WARNING, "MQTT: disconnected from"));
    broker.start();
    ASSERT_TRUE(connected(2));
    // The whole bound is there again once the rest is sent.
    broker.freeze();
    broker.resume();
    Subscriber subscriber(broker, "mark");
    ASSERT_TRUE(waitUntil([&] { return client.publish("mark", "1", 1).code == MQTTMSG_OK; }));
    ASSERT_TRUE(waitUntil([&] { return subscriber.count() == 1; }));
    broker.freeze();
    int accepted = 0;
    for (int i = 0; i < 300; ++i) {
        accepted += client.publish("b", "x", 1).code == MQTTMSG_OK ? 1 : 0;
    }
    EXPECT_GE(accepted, 299); // the confirmation of the mark may not have been read yet
    EXPECT_EQ(client.publish("b", "x", 1).code == MQTTMSG_QUEUE_FULL || accepted == 300, true);
    broker.resume();
}

TEST_F(MqttPublishTest, NoMessageOfABurstWaitsForTheNextWakeUp)
{
    Broker broker({"allow_anonymous true", "max_queued_messages 0", "log_type none"});
    configure(broker.port());
    TestClient client;
    client.init();
    // Nothing is received by the client itself: that would wake its I/O thread, too.
    const Subscriber subscriber(broker, "burst");
    ASSERT_TRUE(connected());
    std::size_t total = 0;
    for (int burst = 0; burst < 10; ++burst) {
        // More than the I/O thread hands over before it looks at its other duties.
        for (int i = 0; i < 4000 + 500 * burst; ++i, ++total) {
            ASSERT_EQ(client.publish("burst", "x").code, MQTTMSG_OK);
        }
        ASSERT_TRUE(waitUntil([&] { return subscriber.count() == total; }))
            << subscriber.count() << " of " << total;
    }
}

TEST_F(MqttPublishTest, RetainsWhatIsToBeRetained)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    client.init();
    Subscriber early(broker, "#");
    client.publish("kept", "last", 1, false, true);
    ASSERT_TRUE(waitUntil([&] { return early.count() == 1; }));
    Subscriber late(broker, "kept");
    EXPECT_TRUE(waitUntil([&] { return late.count() == 1; }));
    EXPECT_EQ(late.messages(), std::vector<std::string>{"kept 0 1 last"});
}

TEST_F(MqttPublishTest, ABrokerThatConfirmsQos2AsIfItWereQos1IsToldWithTheRemedy)
{
    ReluctantBroker broker;
    configure(broker.port());
    broker.start();
    TestClient client;
    client.init();
    client.publish("a", "x", 2);
    ASSERT_TRUE(waitUntil([&] { return broker.received() == 1; }));
    broker.confirm(1);
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "set maximum-qos=1 if it has no QoS 2"));
}

TEST_F(MqttPublishTest, NoMessageHasAHigherQosThanTheSettingsAllow)
{
    ReluctantBroker broker;
    configure(broker.port(), "maximum-qos=1\n");
    broker.start();
    TestClient client;
    client.init();
    // More than may be under way at QoS 2, so they have become QoS 1.
    constexpr std::size_t COUNT = 50;
    for (std::size_t number = 0; number < COUNT; ++number) {
        client.publish("a", "x", 2);
    }
    ASSERT_TRUE(waitUntil([&] { return broker.received() == COUNT; }));
    broker.confirm(COUNT);
    client.publish("a", "x", 2);
    EXPECT_TRUE(waitUntil([&] { return broker.received() == COUNT + 1; }));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

} // namespace
} // namespace mqtt_test
