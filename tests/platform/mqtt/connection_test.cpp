#include "platform/mqtt/fixture.h"
#include "platform/mqtt/name_lookup.h"

#include <algorithm>
#include <fstream>

namespace mqtt_test {
namespace {

using namespace std::chrono_literals;
using test_support::waitUntil;

using MqttConnectionTest = MqttTest;

TEST_F(MqttConnectionTest, PublishesAndReceives)
{
    Broker broker;
    configure(broker.port());
    Subscriber subscriber(broker, "#");
    TestClient client;
    ASSERT_EQ(client.init(), MQTTMSG_OK);
    EXPECT_EQ(client.subscribe("in/+").code, MQTTMSG_OK);
    EXPECT_EQ(client.publish("out/a", "hello").code, MQTTMSG_OK);
    EXPECT_TRUE(waitUntil([&] { return subscriber.count() == 1; }));
    EXPECT_EQ(subscriber.messages(), std::vector<std::string>{"out/a 0 0 hello"});

    broker.publish({"-t", "in/x", "-m", "answer"});
    EXPECT_TRUE(pumpUntil([&] { return client.received.size() == 1; }));
    EXPECT_EQ(client.received.at(0), (Received{"in/x", false, "answer"}));
}

TEST_F(MqttConnectionTest, ConnectsWhenTheBrokerComesLater)
{
    Broker broker({"allow_anonymous true"}, false);
    configure(broker.port());
    TestClient client;
    ASSERT_EQ(client.init(), MQTTMSG_OK);
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "Connection refused"));
    broker.start();
    EXPECT_TRUE(connected());
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "cannot connect"), 1);
}

TEST_F(MqttConnectionTest, FindsABrokerThatDoesNotListenOnTheFirstAddressOfItsName)
{
    Broker broker;
    configure(broker.port(), std::string("host=") + DUAL_NAME);
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    broker.kill();
    broker.start();
    EXPECT_TRUE(connected(2));
}

TEST_F(MqttConnectionTest, LeavesIpv6AddressesOutInEverySecondAttemptAtMost)
{
    // An end of the connection that leaves only addresses of IPv4 to the other one.
    constexpr const char *ANY_IPV4 = "0.0.0.0";
    configure(freePort(), std::string("host=") + DUAL_NAME);
    const int before = timesLookedUp(DUAL_NAME);
    const int leftOutBefore = timesLookedUp(ANY_IPV4);
    TestClient client;
    client.init();
    ASSERT_TRUE(waitUntil([&] { return timesLookedUp(DUAL_NAME) - before >= 4; }));
    const int leftOut = timesLookedUp(ANY_IPV4) - leftOutBefore;
    EXPECT_LE(leftOut * 2, timesLookedUp(DUAL_NAME) - before);
}

TEST_F(MqttConnectionTest, SubscribesAgainAfterTheBrokerWasKilled)
{
    Broker broker;
    configure(broker.port());
    TestClient client;
    client.init();
    client.subscribe("a/#");
    ASSERT_TRUE(connected());
    broker.kill();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "MQTT: disconnected from"));
    client.subscribe("b");
    broker.start();
    ASSERT_TRUE(connected(2));
    EXPECT_TRUE(
        waitUntil([&] { return broker.log().find("SUBSCRIBE from") != std::string::npos; }));
    EXPECT_TRUE(hears(broker, client, "a/b/c"));
    EXPECT_TRUE(hears(broker, client, "b"));
}

TEST_F(MqttConnectionTest, ForgetsAtTheBrokerWhatWasUnsubscribedWhileItWasAway)
{
    Broker broker({"allow_anonymous true", "persistence true", "persistence_location FOLDER/"});
    configure(broker.port(), "clean-session=false");
    TestClient client;
    client.init();
    client.subscribe("a");
    client.subscribe("b");
    ASSERT_TRUE(connected());
    ASSERT_TRUE(hears(broker, client, "a"));
    broker.terminate();
    ASSERT_TRUE(logged(G_LOG_LEVEL_WARNING, "MQTT: disconnected from"));
    EXPECT_EQ(client.unsubscribe("a").code, MQTTMSG_OK);
    broker.start();
    ASSERT_TRUE(connected(2));
    EXPECT_TRUE(waitUntil([&] { return broker.log().find("UNSUBACK") != std::string::npos; }));
    client.received.clear();
    broker.publish({"-t", "a", "-m", "nobody wants this", "-q", "1"});
    EXPECT_TRUE(hears(broker, client, "b"));
    // Not "nothing of a": the broker may end before it has read the acknowledgement of what came
    // earlier, and then sends that again.
    EXPECT_EQ(std::ranges::count(client.received, "nobody wants this", &Received::payload), 0);
}

TEST_F(MqttConnectionTest, UsesUserAndPassword)
{
    Broker broker({"allow_anonymous false", "password_file FOLDER/passwords"}, false);
    test_support::ChildProcess tool({"/usr/bin/mosquitto_passwd", "-c", "-b",
                                     broker.folder().file("passwords"), "camera", "pa55-w0rd"});
    ASSERT_EQ(tool.waitForExit(test_support::DEADLINE), 0);
    broker.start();
    configure(broker.port(), "user=camera\npassword=pa55-w0rd");
    TestClient client;
    client.init();
    EXPECT_TRUE(connected());
    EXPECT_EQ(log.count(0, "pa55"), 0);
}

TEST_F(MqttConnectionTest, SaysWhyTheBrokerRefusesAndKeepsThePasswordToItself)
{
    Broker broker({"allow_anonymous false", "password_file FOLDER/passwords"}, false);
    test_support::ChildProcess tool({"/usr/bin/mosquitto_passwd", "-c", "-b",
                                     broker.folder().file("passwords"), "camera", "right"});
    ASSERT_EQ(tool.waitForExit(test_support::DEADLINE), 0);
    broker.start();
    configure(broker.port(), "user=camera\npassword=wr0ng-secret");
    TestClient client;
    client.init();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "not authorised"));
    EXPECT_EQ(log.count(0, "wr0ng"), 0);
}

TEST_F(MqttConnectionTest, GivesUpAServerThatNeverAnswersAndTriesAgain)
{
    const MuteServer server;
    configure(server.port(), "keepalive=5");
    TestClient client;
    client.init();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "no answer from the broker"));
    EXPECT_EQ(client.publish("a", "waits").code, MQTTMSG_OK);
}

TEST_F(MqttConnectionTest, NoticesABrokerThatFallsSilent)
{
    Broker broker;
    configure(broker.port(), "keepalive=5");
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    broker.freeze();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "did not answer within the keepalive time"));
    broker.resume();
    EXPECT_TRUE(connected(2));
}

TEST_F(MqttConnectionTest, NoticesABrokerThatFallsSilentUnderLoad)
{
    Broker broker;
    configure(broker.port(), "keepalive=5");
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    broker.freeze();
    const std::string payload(10'000, 'x');
    EXPECT_TRUE(pumpUntil([&] {
        client.publish("load", payload, 0);
        client.publish("load", payload, 1);
        return log.count(G_LOG_LEVEL_WARNING, "MQTT: disconnected from") == 1;
    }));
    broker.resume();
    EXPECT_TRUE(connected(2));
}

TEST_F(MqttConnectionTest, StaysConnectedWhileNothingHappens)
{
    Broker broker;
    configure(broker.port(), "keepalive=5");
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    const auto pings = [&] {
        const std::string text = broker.log();
        int count = 0;
        for (std::size_t at = 0; (at = text.find("PINGREQ from", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    EXPECT_TRUE(waitUntil([&] { return pings() >= 2; }));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

TEST_F(MqttConnectionTest, WarnsWhenTheBrokerRefusesASubscription)
{
    Broker broker({"allow_anonymous true",
                   "plugin /usr/lib/x86_64-linux-gnu/mosquitto_dynamic_security.so",
                   "plugin_opt_config_file FOLDER/rights.json"},
                  false);
    std::ofstream(broker.folder().file("rights.json")) << R"({
        "defaultACLAccess": {"publishClientSend": true, "publishClientReceive": true,
                             "subscribe": false, "unsubscribe": true},
        "anonymousGroup": "everyone",
        "groups": [{"groupname": "everyone", "roles": [{"rolename": "reader"}]}],
        "roles": [{"rolename": "reader",
                   "acls": [{"acltype": "subscribePattern", "topic": "allowed/#",
                             "allow": true}]}]})";
    broker.start();
    configure(broker.port());
    TestClient client;
    client.init();
    client.subscribe("forbidden/#");
    client.subscribe("allowed/#");
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "refused the subscription of \"forbidden/#\""));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "allowed/#\""), 0);
}

TEST_F(MqttConnectionTest, TwoHandlesOfAProcessDoNotPushEachOtherOut)
{
    Broker broker;
    configure(broker.port());
    TestClient first;
    TestClient second;
    first.init();
    second.init();
    ASSERT_TRUE(connected(2));
    first.subscribe("to/first");
    second.subscribe("to/second");
    ASSERT_TRUE(hears(broker, first, "to/first"));
    ASSERT_TRUE(hears(broker, second, "to/second"));
    first.received.clear();
    second.received.clear();
    second.publish("to/first", "x", 1);
    first.publish("to/second", "y", 1);
    EXPECT_TRUE(
        pumpUntil([&] { return first.received.size() == 1 && second.received.size() == 1; }));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

TEST_F(MqttConnectionTest, LeavesTheBrokerWithoutItsLastWillAndIsLostWithIt)
{
    Broker broker;
    configure(broker.port(), "", "[will]\ntopic=gone\npayload=bye\nuse-device-topic-prefix=true\n");
    Subscriber subscriber(broker, "#");
    {
        TestClient client;
        client.init();
        ASSERT_TRUE(connected());
    }
    EXPECT_TRUE(
        waitUntil([&] { return broker.log().find("Received DISCONNECT") != std::string::npos; }));
    EXPECT_EQ(subscriber.count(), 0U);
}

} // namespace
} // namespace mqtt_test
