/** The client as its users link it, with the real event service. */
#include "event_service_fixture.h"
#include "platform/mqtt/broker.h"

#include <norq/event_consumer.h>
#include <norq/mqtt_messaging.h>

#include <fstream>
#include <mutex>

namespace {

using test_support::waitUntil;

/** Collects "active connected property" of each status event. */
class StatusConsumer {
public:
    StatusConsumer() : consumer(event_consumer_new("status-test"))
    {
        subscribe_expression_t *expression = subscribe_expression_new();
        subscribe_expression_add_key_value(expression, "topic0", "Device");
        subscribe_expression_add_key_value(expression, "topic1", "MQTT");
        subscribe_expression_add_key_value(expression, "topic2", "ClientStatus");
        subscribe_expression_set_name_space(expression, "topic0", "tns1");
        subscribe_expression_set_name_space(expression, "topic1", "tnsnorq");
        subscribe_expression_set_name_space(expression, "topic2", "tnsnorq");
        EXPECT_GE(event_consumer_subscribe(consumer, expression, take, this), 0);
        subscribe_expression_free(expression);
    }
    ~StatusConsumer() { event_consumer_free(consumer); }
    StatusConsumer(const StatusConsumer &) = delete;
    StatusConsumer &operator=(const StatusConsumer &) = delete;

    [[nodiscard]] std::vector<std::string> seen() const
    {
        const std::lock_guard guard(mutex);
        return statuses;
    }

private:
    static void take(event_t *event, void *data)
    {
        auto *self = static_cast<StatusConsumer *>(data);
        const std::string status = std::string(event_get_value(event, "active")) + " " +
                                   event_get_value(event, "connected") + " " +
                                   (event_is_property(event) != 0 ? "property" : "stateless");
        event_free(event);
        const std::lock_guard guard(self->mutex);
        self->statuses.push_back(status);
    }

    event_consumer_t *consumer;
    mutable std::mutex mutex; // guards statuses
    std::vector<std::string> statuses;
};

class MqttStatusEventTest : public event_test::EventServiceTest {
protected:
    MqttStatusEventTest()
    {
        std::ofstream(bus.folder().file("mqtt.conf"))
            << "[broker]\nhost=127.0.0.1\nport=" << broker.port() << "\n";
        g_setenv("NORQ_MQTT_CONF", bus.folder().file("mqtt.conf").c_str(), TRUE);
        handle = MQTTMsg_new2([](const char *, bool, const char *, int, void *) {}, nullptr);
    }
    ~MqttStatusEventTest() override
    {
        MQTTMsg_delete(handle);
        g_unsetenv("NORQ_MQTT_CONF");
    }

    mqtt_test::Broker broker{{"allow_anonymous true"}, false};
    MQTTMsg_t *handle;
};

TEST_F(MqttStatusEventTest, EveryChangeReachesAConsumer)
{
    const StatusConsumer early;
    ASSERT_EQ(MQTTMsg_init(handle, 0), MQTTMSG_OK);
    ASSERT_TRUE(
        waitUntil([&] { return early.seen() == std::vector<std::string>{"1 0 property"}; }));
    broker.start();
    EXPECT_TRUE(waitUntil([&] {
        return early.seen() == std::vector<std::string>{"1 0 property", "1 1 property"};
    }));
    const StatusConsumer late;
    EXPECT_TRUE(waitUntil([&] { return late.seen() == std::vector<std::string>{"1 1 property"}; }));
}

TEST_F(MqttStatusEventTest, TheStatusIsThereAgainAfterTheEventServiceWas)
{
    broker.start();
    crashDaemon();
    ASSERT_EQ(MQTTMsg_init(handle, 0), MQTTMSG_OK);
    ASSERT_TRUE(waitUntil([&] { return logs.count(G_LOG_LEVEL_INFO, "MQTT: connected") == 1; }));
    restartDaemon();
    const StatusConsumer consumer;
    EXPECT_TRUE(waitUntil([&] {
        const std::vector<std::string> seen = consumer.seen();
        return !seen.empty() && seen.back() == "1 1 property";
    }));
}

} // namespace
