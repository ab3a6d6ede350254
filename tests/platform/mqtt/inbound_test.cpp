#include "platform/mqtt/fixture.h"

#include <algorithm>
#include <utility>

namespace mqtt_test {
namespace {

using test_support::waitUntil;

using MqttInboundTest = MqttTest;

constexpr const char *END = "the/end";

/**
 * Waits until all messages published before have arrived, and gives them without those that mark
 * the end. The client has to be subscribed to END.
 */
std::vector<Received> receivedBefore(Broker &broker, TestClient &client)
{
    static int number = 0;
    const std::string mark = std::to_string(++number);
    const auto isMark = [&](const Received &message) {
        return message.topic == END && message.payload == mark;
    };
    EXPECT_TRUE(pumpUntil([&] {
        broker.publish({"-t", END, "-m", mark, "-q", "1"});
        return std::ranges::any_of(client.received, isMark);
    }));
    std::vector<Received> result = std::move(client.received);
    client.received.clear();
    std::erase_if(result, [](const Received &message) { return message.topic == END; });
    return result;
}

struct Case {
    const char *name;
    std::vector<std::pair<std::string, bool>> filters;
    std::string topic;
    std::vector<Received> expected;
};

class MqttFormsTest : public MqttTest {
protected:
    void runCases(const std::string &prefixLine, const std::vector<Case> &cases)
    {
        Broker broker;
        configure(broker.port(), "", "[client]\n" + prefixLine + "\n");
        for (const Case &each : cases) {
            SCOPED_TRACE(each.name);
            TestClient client;
            client.init();
            for (const auto &[filter, usePrefix] : each.filters) {
                ASSERT_EQ(client.subscribe(filter, 1, usePrefix).code, MQTTMSG_OK);
            }
            // Changes go to the broker in one run: when this one works, the others do.
            client.subscribe(END);
            receivedBefore(broker, client);
            broker.publish({"-t", each.topic, "-m", "x", "-q", "1"});
            EXPECT_EQ(receivedBefore(broker, client), each.expected);
        }
    }
};

TEST_F(MqttFormsTest, AMessageIsGivenOnceForEachFormInWhichAFilterMatches)
{
    runCases(
        "device-topic-prefix=norq/T1",
        {
            {"plain filter, topic outside the prefix",
             {{"a/#", false}},
             "a/b",
             {{"a/b", false, "x"}}},
            {"plain filter, topic with the prefix",
             {{"norq/#", false}},
             "norq/T1/a",
             {{"norq/T1/a", false, "x"}}},
            {"flagged filter", {{"a/+", true}}, "norq/T1/a/b", {{"a/b", true, "x"}}},
            {"overlapping filters of one form",
             {{"a/+", true}, {"a/#", true}, {"a/b", true}},
             "norq/T1/a/b",
             {{"a/b", true, "x"}}},
            {"both forms",
             {{"a/#", true}, {"norq/#", false}},
             "norq/T1/a/b",
             {{"a/b", true, "x"}, {"norq/T1/a/b", false, "x"}}},
            {"the same complete filter with the flag and without",
             {{"a", true}, {"norq/T1/a", false}},
             "norq/T1/a",
             {{"a", true, "x"}, {"norq/T1/a", false, "x"}}},
            {"the prefix itself, which # covers",
             {{"#", true}},
             "norq/T1",
             {{"norq/T1", false, "x"}}},
            {"nothing behind the prefix", {{"#", true}}, "norq/T1/", {{"norq/T1/", false, "x"}}},
            {"a longer name that begins like the prefix",
             {{"#", false}},
             "norq/T12/a",
             {{"norq/T12/a", false, "x"}}},
            {"a level that begins with a dollar",
             {{"#", true}, {"norq/#", false}},
             "norq/T1/$x",
             {{"$x", true, "x"}, {"norq/T1/$x", false, "x"}}},
            {"shared subscription", {{"$share/group/a/#", false}}, "a/b", {{"a/b", false, "x"}}},
        });
}

TEST_F(MqttFormsTest, WithAnEmptyPrefixBothFormsAreOne)
{
    runCases("device-topic-prefix=",
             {
                 {"flagged", {{"a", true}}, "a", {{"a", true, "x"}}},
                 {"plain", {{"a", false}}, "a", {{"a", false, "x"}}},
                 {"both", {{"a", true}, {"#", false}}, "a", {{"a", true, "x"}}},
             });
}

TEST_F(MqttInboundTest, WhatIsLeftOfAnEarlierSessionIsGivenOnceWithThePrefixTakenOff)
{
    Broker broker;
    configure(broker.port(), "clean-session=false\nclient-id=me");
    {
        TestClient client;
        client.init();
        client.subscribe("a", 1, true);
        client.subscribe("b", 1);
        ASSERT_TRUE(hears(broker, client, "b"));
    }
    broker.publish({"-t", "norq/TEST-1/a", "-m", "1", "-q", "1"});
    broker.publish({"-t", "b", "-m", "2", "-q", "1"});
    TestClient client;
    client.init();
    ASSERT_TRUE(pumpUntil([&] { return client.received.size() == 2; }));
    EXPECT_EQ(client.received, (std::vector<Received>{{"a", true, "1"}, {"b", false, "2"}}));
}

TEST_F(MqttInboundTest, UnsubscribingWhatIsNotSubscribedSaysSo)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    client.init();
    const Outcome none = client.unsubscribe("a");
    EXPECT_EQ(none.code, MQTTMSG_NOT_SUBSCRIBED);
    EXPECT_EQ(none.code, 8);
    EXPECT_EQ(none.text, "The topic filter is not subscribed");
    EXPECT_EQ(client.subscribe("a", 1, true).code, MQTTMSG_OK);
    EXPECT_EQ(client.unsubscribe("a", false).code, MQTTMSG_NOT_SUBSCRIBED);
    EXPECT_EQ(client.unsubscribe("a", true).code, MQTTMSG_OK);
    EXPECT_EQ(client.unsubscribe("a", true).code, MQTTMSG_NOT_SUBSCRIBED);
}

TEST_F(MqttInboundTest, FiltersAreChecked)
{
    configure(freePort());
    TestClient client;
    client.init();
    EXPECT_EQ(client.subscribe("").code, MQTTMSG_INVALID_TOPIC);
    EXPECT_EQ(client.subscribe("", 0, true).code, MQTTMSG_INVALID_TOPIC);
    EXPECT_EQ(client.subscribe("a/#/b").code, MQTTMSG_INVALID_TOPIC);
    EXPECT_EQ(client.subscribe("a+").code, MQTTMSG_INVALID_TOPIC);
    EXPECT_EQ(client.subscribe("\xff").code, MQTTMSG_INVALID_TOPIC);
    EXPECT_EQ(client.subscribe("a", 3).code, MQTTMSG_INVALID_ARGUMENT);
    EXPECT_EQ(client.subscribe(std::string(65536, 'a')).code, MQTTMSG_TOO_LARGE);
    EXPECT_EQ(client.unsubscribe("a+").code, MQTTMSG_INVALID_TOPIC);
}

TEST_F(MqttInboundTest, EmptyPayloadsAndAnyBytesArrive)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    TestClient sender;
    client.init();
    sender.init();
    client.subscribe("bytes");
    ASSERT_TRUE(hears(broker, client, "bytes"));
    client.received.clear();
    const std::string bytes("a\0b\xff", 4);
    sender.publish("bytes", bytes, 1);
    sender.publish("bytes", "", 1);
    ASSERT_TRUE(pumpUntil([&] { return client.received.size() == 2; }));
    EXPECT_EQ(client.received[0].payload, bytes);
    EXPECT_EQ(client.received[1].payload, "");
}

TEST_F(MqttInboundTest, M10ABlockedMainLoopHoldsTheBrokerBackAndLosesNothing)
{
    Broker broker({"allow_anonymous true", "max_queued_messages 0", "max_inflight_messages 100"});
    configure(broker.port(), "keepalive=5", "[queue]\nmessages=100000\ninbound-messages=1000\n");
    TestClient client;
    client.init();
    client.subscribe("flood", 1);
    ASSERT_TRUE(hears(broker, client, "flood"));
    client.received.clear();
    test_support::ChildProcess flood({"/usr/bin/mosquitto_pub", "-p", std::to_string(broker.port()),
                                      "-t", "flood", "-m", std::string(300, 'x'), "-q", "1",
                                      "--repeat", "20000"});
    ASSERT_EQ(flood.waitForExit(std::chrono::seconds(60)), 0);
    // Several times as long as the keepalive the main loop takes nothing: the connection has to
    // stay.
    const auto substitutes = [&] {
        const std::string text = broker.log();
        int count = 0;
        for (std::size_t at = 0; (at = text.find("Received UNSUBSCRIBE", at)) != std::string::npos;
             ++at) {
            ++count;
        }
        return count >= 3;
    };
    ASSERT_TRUE(waitUntil(substitutes, std::chrono::seconds(60)));
    EXPECT_TRUE(
        pumpUntil([&] { return client.received.size() == 20'000; }, std::chrono::seconds(60)))
        << client.received.size();
    EXPECT_TRUE(hears(broker, client, "flood"));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

TEST_F(MqttInboundTest, OtherSourcesOfTheMainLoopGetTheirTurnDuringAFlood)
{
    Broker broker({"allow_anonymous true", "max_queued_messages 0"});
    configure(broker.port());
    TestClient client;
    client.init();
    client.subscribe("flood", 1);
    ASSERT_TRUE(hears(broker, client, "flood"));
    client.received.clear();
    broker.publish({"-t", "flood", "-m", "x", "-q", "1", "--repeat", "2000"});
    struct Turn {
        TestClient &client;
        std::size_t receivedBefore = 0;
        bool came = false;
    } turn{client};
    g_timeout_add(
        0,
        [](gpointer data) -> gboolean {
            auto *self = static_cast<Turn *>(data);
            self->came = true;
            self->receivedBefore = self->client.received.size();
            return G_SOURCE_REMOVE;
        },
        &turn);
    ASSERT_TRUE(pumpUntil([&] { return client.received.size() == 2000; }));
    EXPECT_TRUE(turn.came);
    EXPECT_LE(turn.receivedBefore, 64U);
}

TEST_F(MqttInboundTest, TopicsAreMatchedAndFiltersCheckedByTheRulesOfMqtt)
{
    EXPECT_TRUE(MQTTMsg_topic_matches("a/#", "a/b/c"));
    EXPECT_TRUE(MQTTMsg_topic_matches("a/#", "a"));
    EXPECT_TRUE(MQTTMsg_topic_matches("+/b", "a/b"));
    EXPECT_TRUE(MQTTMsg_topic_matches("+", ""
                                           "x"));
    EXPECT_FALSE(MQTTMsg_topic_matches("#", "$SYS/a"));
    EXPECT_FALSE(MQTTMsg_topic_matches("a/b", "a/c"));
    EXPECT_FALSE(MQTTMsg_topic_matches("a/#/b", "a/x/b"));
    EXPECT_FALSE(MQTTMsg_topic_matches("a/+", "a/+"));
    EXPECT_FALSE(MQTTMsg_topic_matches("", ""));
    EXPECT_FALSE(MQTTMsg_topic_matches(nullptr, "a"));
    EXPECT_FALSE(MQTTMsg_topic_matches("a", nullptr));
    for (const char *valid : {"a", "/", "a/b", "#", "+", "a/#", "+/+/a", "/a", "$SYS/#", "ä/ö"}) {
        EXPECT_TRUE(MQTTMsg_check_sub_topic(valid)) << valid;
    }
    for (const char *invalid : {"", "a#", "#/a", "a+", "a/b+/c", "a/#/", "\xff"}) {
        EXPECT_FALSE(MQTTMsg_check_sub_topic(invalid)) << invalid;
    }
    EXPECT_FALSE(MQTTMsg_check_sub_topic(nullptr));
}

} // namespace
} // namespace mqtt_test
