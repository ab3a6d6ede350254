/** What the tests of the MQTT client share: settings, a handle, the main loop. */
#pragma once

#include "platform/mqtt/broker.h"
#include "platform/mqtt/fake_event_service.h"
#include "support/log_capture.h"
#include "support/temp_directory.h"
#include "support/wait_until.h"

#include <norq/mqtt_messaging.h>

#include <glib.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace mqtt_test {

/** One call of the message callback. */
struct Received {
    std::string topic;
    bool prefixOff = false;
    std::string payload;
    bool operator==(const Received &) const = default;
};

/** Prints a message when a comparison fails. */
void PrintTo(const Received &message, std::ostream *stream);

/** Outcome of a call: code and text. */
struct Outcome {
    int code = 0;
    std::string text;
};

/** A handle that collects what it receives. */
class TestClient {
public:
    TestClient();
    ~TestClient();
    TestClient(const TestClient &) = delete;
    TestClient &operator=(const TestClient &) = delete;

    int init() { return MQTTMsg_init(handle, 0); }
    /** Deletes the handle; it may be called from onMessage. */
    void remove();
    Outcome publish(const std::string &topic, const std::string &payload, int qos = 0,
                    bool usePrefix = false, bool retain = false);
    Outcome subscribe(const std::string &filter, int qos = 1, bool usePrefix = false);
    Outcome unsubscribe(const std::string &filter, bool usePrefix = false);

    MQTTMsg_t *handle;
    std::vector<Received> received;
    /** Called after a message was put into `received`. */
    std::function<void()> onMessage;

private:
    static void take(const char *topic, bool prefixOff, const char *payload, int length,
                     void *self);
};

/** Iterates the default main context until the condition holds; false after `limit`. */
bool pumpUntil(const std::function<bool()> &condition,
               std::chrono::milliseconds limit = test_support::DEADLINE);

/** A device with the serial number "TEST-1" and a settings file of the test's own. */
class MqttTest : public testing::Test {
protected:
    MqttTest();
    ~MqttTest() override;

    /** Writes the settings; without "port" and "keepalive" in [broker] those of the arguments. */
    void configure(int port, const std::string &brokerLines = "", const std::string &rest = "");
    /** Waits until the client has connected `times` times. */
    [[nodiscard]] bool connected(int times = 1) const;
    /** Waits for this many lines of a level that contain a text. */
    [[nodiscard]] bool logged(int level, const std::string &part, int times = 1) const;
    /** Publishes to a topic until `client` gets it; nothing of that is under way afterwards. */
    static bool hears(Broker &broker, TestClient &client, const std::string &topic);

    test_support::TempDirectory folder;
    test_support::LogCapture log;
};

} // namespace mqtt_test
