#include "platform/mqtt/fixture.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace mqtt_test {
namespace {

using Text = std::unique_ptr<char, decltype(&std::free)>;

Outcome outcome(int code, char *text)
{
    const Text owned(text, std::free);
    return {code, owned ? owned.get() : ""};
}

} // namespace

void PrintTo(const Received &message, std::ostream *stream)
{
    *stream << message.topic << (message.prefixOff ? " (prefix off) " : " ") << message.payload;
}

TestClient::TestClient() : handle(MQTTMsg_new2(take, this)) {}

TestClient::~TestClient()
{
    remove();
}

void TestClient::remove()
{
    MQTTMsg_delete(handle);
    handle = nullptr;
}

Outcome TestClient::publish(const std::string &topic, const std::string &payload, int qos,
                            bool usePrefix, bool retain)
{
    char *text = nullptr;
    const int code = MQTTMsg_publish(handle, topic.c_str(), usePrefix, payload.data(),
                                     payload.size(), qos, retain, &text);
    return outcome(code, text);
}

Outcome TestClient::subscribe(const std::string &filter, int qos, bool usePrefix)
{
    char *text = nullptr;
    const int code = MQTTMsg_subscribe(handle, filter.c_str(), qos, usePrefix, &text);
    return outcome(code, text);
}

Outcome TestClient::unsubscribe(const std::string &filter, bool usePrefix)
{
    char *text = nullptr;
    const int code = MQTTMsg_unsubscribe(handle, filter.c_str(), usePrefix, &text);
    return outcome(code, text);
}

void TestClient::take(const char *topic, bool prefixOff, const char *payload, int length,
                      void *self)
{
    auto *client = static_cast<TestClient *>(self);
    EXPECT_EQ(payload == nullptr, length == 0);
    client->received.push_back(
        {topic, prefixOff,
         payload == nullptr ? "" : std::string(payload, static_cast<std::size_t>(length))});
    if (client->onMessage) {
        client->onMessage();
    }
}

bool pumpUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    return test_support::waitUntil(
        [&] {
            for (int turn = 0; turn < 100 && g_main_context_iteration(nullptr, FALSE); ++turn) {
            }
            return condition();
        },
        limit);
}

MqttTest::MqttTest()
{
    FakeEventService::reset();
    std::ofstream(folder.file("device.conf")) << "[device]\nserial=TEST-1\n";
    g_setenv("NORQ_DEVICE_CONF", folder.file("device.conf").c_str(), TRUE);
    g_setenv("NORQ_MQTT_CONF", folder.file("mqtt.conf").c_str(), TRUE);
}

MqttTest::~MqttTest()
{
    g_unsetenv("NORQ_DEVICE_CONF");
    g_unsetenv("NORQ_MQTT_CONF");
}

void MqttTest::configure(int port, const std::string &brokerLines, const std::string &rest)
{
    std::ofstream(folder.file("mqtt.conf")) << "[broker]\nhost=127.0.0.1\nport=" << port << "\n"
                                            << brokerLines << "\n"
                                            << rest;
}

bool MqttTest::connected(int times) const
{
    return logged(G_LOG_LEVEL_INFO, "MQTT: connected to", times);
}

bool MqttTest::logged(int level, const std::string &part, int times) const
{
    return pumpUntil([&] { return log.count(level, part) >= times; });
}

bool MqttTest::hears(Broker &broker, TestClient &client, const std::string &topic)
{
    // The subscription may not have reached the broker yet.
    const std::size_t before = client.received.size();
    const bool heard = pumpUntil([&] {
        broker.publish({"-t", topic, "-m", "hello", "-q", "1"});
        return client.received.size() > before;
    });
    // With this one all that were published before have arrived.
    broker.publish({"-t", topic, "-m", "last", "-q", "1"});
    return heard && pumpUntil([&] { return client.received.back().payload == "last"; });
}

} // namespace mqtt_test
