#include "platform/mqtt/fixture.h"
#include "platform/mqtt/reluctant_broker.h"

namespace mqtt_test {
namespace {

using namespace std::chrono_literals;
using test_support::waitUntil;

using MqttStatusTest = MqttTest;
using Status = FakeEventService::Status;

bool announced(const std::vector<Status> &expected)
{
    return waitUntil([&] { return FakeEventService::sent() == expected; });
}

TEST_F(MqttStatusTest, IsDeclaredAsAPropertyEvent)
{
    configure(freePort());
    TestClient client;
    client.init();
    ASSERT_TRUE(announced({{true, false}}));
    EXPECT_EQ(FakeEventService::declaredKeys(),
              (std::vector<std::string>{"active:2 onvif-data", "connected:2 onvif-data!",
                                        "topic0=Device tns1", "topic1=MQTT tnsnorq",
                                        "topic2=ClientStatus tnsnorq"}));
}

TEST_F(MqttStatusTest, IsAnnouncedAtEveryChangeFromTheBeginning)
{
    Broker broker({"allow_anonymous true"}, false);
    configure(broker.port());
    TestClient client;
    client.init();
    EXPECT_TRUE(announced({{true, false}}));
    broker.start();
    EXPECT_TRUE(announced({{true, false}, {true, true}}));
    broker.kill();
    EXPECT_TRUE(announced({{true, false}, {true, true}, {true, false}}));
    broker.start();
    EXPECT_TRUE(announced({{true, false}, {true, true}, {true, false}, {true, true}}));
}

TEST_F(MqttStatusTest, IsConnectedOnceHalfOfTheOutboundQueueIsFree)
{
    ReluctantBroker broker;
    configure(broker.port(), "", "[queue]\nmessages=8\n");
    TestClient client;
    client.init();
    for (int count = 0; count < 8; ++count) {
        ASSERT_EQ(client.publish("a", "waits", 1).code, MQTTMSG_OK);
    }
    broker.start();
    ASSERT_TRUE(waitUntil([&] { return broker.received() == 8; }));
    broker.confirm(3);
    for (int freed = 0; freed < 3; ++freed) {
        ASSERT_TRUE(waitUntil([&] { return client.publish("a", "b", 1).code == MQTTMSG_OK; }));
    }
    ASSERT_TRUE(waitUntil([&] { return broker.received() == 11; }));
    EXPECT_EQ(FakeEventService::sent(), (std::vector<Status>{{true, false}}));
    broker.confirm(4);
    EXPECT_TRUE(announced({{true, false}, {true, true}}));
}

TEST_F(MqttStatusTest, SwitchedOffIsAnnouncedAndStaysWhileTheHandleLives)
{
    configure(freePort(), "", "[client]\nactive=false\n");
    TestClient client;
    client.init();
    EXPECT_TRUE(announced({{false, false}}));
    EXPECT_EQ(FakeEventService::producers(), 1);
    client.remove();
    EXPECT_EQ(FakeEventService::producers(), 0);
}

TEST_F(MqttStatusTest, IsOfferedAgainUntilTheEventServiceTakesIt)
{
    Broker broker;
    configure(broker.port());
    FakeEventService::setAway(true);
    TestClient client;
    client.init();
    ASSERT_TRUE(connected());
    ASSERT_TRUE(waitUntil([] { return FakeEventService::attempts() >= 2; }));
    FakeEventService::setAway(false);
    EXPECT_TRUE(announced({{true, true}}));
}

TEST_F(MqttStatusTest, AStuckEventServiceHoldsUpNeitherMessagesNorTheEnd)
{
    Broker broker;
    configure(broker.port());
    FakeEventService::setStuck(true);
    TestClient client;
    client.init();
    client.subscribe("a");
    ASSERT_TRUE(waitUntil([] { return FakeEventService::attempts() >= 1; }));
    EXPECT_TRUE(hears(broker, client, "a"));
    const auto begin = std::chrono::steady_clock::now();
    client.remove();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
}

} // namespace
} // namespace mqtt_test
