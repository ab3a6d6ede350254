/** A broker that has lost the session that was to persist. */
#include "platform/mqtt/fixture.h"
#include "platform/mqtt/reluctant_broker.h"

namespace mqtt_test {
namespace {

using test_support::waitUntil;

/** A client with a message under way, and messages of QoS 2 to be expected from the broker. */
class MqttLostSessionTest : public MqttTest {
protected:
    void SetUp() override
    {
        configure(broker.port(), "clean-session=false\n");
        broker.start();
        client.init();
        client.subscribe("a/#", 2);
        ASSERT_TRUE(received("CS"));
        client.publish("b", "under way", 1);
        ASSERT_TRUE(received("CSP"));
        broker.drop();
    }

    [[nodiscard]] bool received(const std::string &packets) const
    {
        return waitUntil([&] { return broker.packets() == packets; });
    }

    ReluctantBroker broker;
    TestClient client;
};

TEST_F(MqttLostSessionTest, IsGivenUpBeforeAnythingThatWasLeftIsSent)
{
    ASSERT_TRUE(received("CSP/CD")) << broker.packets();
    EXPECT_FALSE(broker.someoneWaits());
    broker.drop();
    EXPECT_TRUE(received("CSP/CD/CSP")) << broker.packets();
}

TEST_F(MqttLostSessionTest, IsReplacedThoughTheBrokerDoesNotCloseTheConnection)
{
    EXPECT_TRUE(received("CSP/CD/CSP")) << broker.packets();
}

} // namespace
} // namespace mqtt_test
