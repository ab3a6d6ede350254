/**
 * How many messages a second go through the MQTT client of the platform to a broker of its own and
 * on to a subscriber, beside libmosquitto with its own thread doing the same in the same run.
 *
 * usage: mqtt_client_benchmark [messages of QoS 0] [messages of QoS 1]
 */
#include "platform/mqtt/broker.h"
#include "support/temp_directory.h"
#include "support/wait_until.h"

#include <norq/mqtt_messaging.h>

#include <glib.h>
#include <mosquitto.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using test_support::waitUntil;

constexpr const char *TOPIC = "benchmark/messages";
constexpr std::size_t PAYLOAD_SIZE = 300;
constexpr std::chrono::seconds LIMIT{60};
const std::string PAYLOAD(PAYLOAD_SIZE, 'x');

/** One libmosquitto client with the library's own thread, connected. */
class PlainClient {
public:
    PlainClient(int port, int window)
        : client(mosquitto_new(nullptr, true, this), mosquitto_destroy)
    {
        if (window > 0) {
            mosquitto_int_option(client.get(), MOSQ_OPT_SEND_MAXIMUM, window);
        }
        mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_connect_callback_set(client.get(), [](mosquitto *, void *self, int) {
            static_cast<PlainClient *>(self)->connected = true;
        });
        mosquitto_subscribe_callback_set(client.get(),
                                         [](mosquitto *, void *self, int, int, const int *) {
                                             static_cast<PlainClient *>(self)->subscribed = true;
                                         });
        mosquitto_message_callback_set(
            client.get(), [](mosquitto *, void *self, const mosquitto_message *) {
                static_cast<PlainClient *>(self)->received.fetch_add(1, std::memory_order_relaxed);
            });
        mosquitto_connect(client.get(), "127.0.0.1", port, 60);
        mosquitto_loop_start(client.get());
        if (!waitUntil([this] { return connected.load(); })) {
            throw std::runtime_error("a client cannot connect");
        }
    }
    ~PlainClient()
    {
        mosquitto_disconnect(client.get());
        mosquitto_loop_stop(client.get(), false);
    }
    PlainClient(const PlainClient &) = delete;
    PlainClient &operator=(const PlainClient &) = delete;

    void subscribe()
    {
        mosquitto_subscribe(client.get(), nullptr, TOPIC, 1);
        if (!waitUntil([this] { return subscribed.load(); })) {
            throw std::runtime_error("the subscription was not confirmed");
        }
    }
    void publish(int qos)
    {
        mosquitto_publish(client.get(), nullptr, TOPIC, static_cast<int>(PAYLOAD.size()),
                          PAYLOAD.data(), qos, false);
    }

    std::atomic<long> received{0};

private:
    std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> client;
    std::atomic<bool> connected{false};
    std::atomic<bool> subscribed{false};
};

struct Deleter {
    void operator()(MQTTMsg_t *handle) const { MQTTMsg_delete(handle); }
};

/** Publishes through the platform's client; waits while its queue is full. */
class PlatformClient {
public:
    explicit PlatformClient(int port)
    {
        std::ofstream(folder.file("mqtt.conf"))
            << "[broker]\nhost=127.0.0.1\nport=" << port << "\n";
        g_setenv("NORQ_MQTT_CONF", folder.file("mqtt.conf").c_str(), TRUE);
        handle.reset(MQTTMsg_new2([](const char *, bool, const char *, int, void *) {}, nullptr));
        if (MQTTMsg_init(handle.get(), 0) != MQTTMSG_OK) {
            throw std::runtime_error("MQTTMsg_init failed");
        }
    }
    void publish(int qos)
    {
        while (MQTTMsg_publish(handle.get(), TOPIC, false, PAYLOAD.data(), PAYLOAD.size(), qos,
                               false, nullptr) == MQTTMSG_QUEUE_FULL) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    test_support::TempDirectory folder;
    std::unique_ptr<MQTTMsg_t, Deleter> handle;
};

/** Messages a second from the first publication to the last message at the subscriber. */
double measure(PlainClient &subscriber, long count, const std::function<void()> &publish)
{
    publish(); // the connection and the road are there
    if (!waitUntil([&] { return subscriber.received.load() == 1; })) {
        throw std::runtime_error("the first message did not arrive");
    }
    subscriber.received = 0;
    const auto begin = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i) {
        publish();
    }
    if (!waitUntil([&] { return subscriber.received.load() >= count; }, LIMIT)) {
        throw std::runtime_error(std::to_string(count - subscriber.received.load()) +
                                 " messages did not arrive");
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    subscriber.received = 0;
    return static_cast<double>(count) / seconds.count();
}

void compare(int qos, long count, int window)
{
    mqtt_test::Broker broker(
        {"allow_anonymous true", "log_type none", "max_queued_messages 0", "max_queued_bytes 0"});
    PlainClient subscriber(broker.port(), 0);
    subscriber.subscribe();
    double plain = 0;
    {
        PlainClient client(broker.port(), window);
        plain = measure(subscriber, count, [&] { client.publish(qos); });
    }
    PlatformClient client(broker.port());
    const double platform = measure(subscriber, count, [&] { client.publish(qos); });
    std::printf(
        "QoS %d, %ld messages of %zu bytes, window of libmosquitto %s: libmosquitto %.0f/s, "
        "platform client %.0f/s, ratio %.2f\n",
        qos, count, PAYLOAD_SIZE, window > 0 ? std::to_string(window).c_str() : "default", plain,
        platform, platform / plain);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        mosquitto_lib_init();
        const long qos0 = argc > 1 ? std::atol(argv[1]) : 200'000;
        const long qos1 = argc > 2 ? std::atol(argv[2]) : 40'000;
        compare(0, qos0, 0);
        compare(1, qos1, 0);
        compare(1, qos1, 200);
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
