#include "services.h"

#include "environment.h"
#include "platform/mqtt/broker.h"
#include "process.h"
#include "roads.h"
#include "support/wait_until.h"

#include <stdexcept>
#include <thread>

namespace end_to_end {
namespace {

using benchmarks::fromSandbox;
using benchmarks::writeFile;
using test_support::ChildProcess;
using test_support::waitUntil;

} // namespace

Services::Services(std::chrono::seconds keepalive)
    : brokerPort(mqtt_test::freePort()), eventServiceId(benchmarks::processOfSandbox("eventd"))
{
    startBroker();
    startService(keepalive);
    for (const int qos : {0, 1, 2}) {
        proveRoad(qos);
    }
}

void Services::startBroker()
{
    const std::string path = fromSandbox("SANDBOX_DIR") + "/benchmark-broker.conf";
    writeFile(path, "listener " + std::to_string(brokerPort) +
                        " 127.0.0.1\nuser root\nallow_anonymous true\nlog_type none\n"
                        "max_queued_messages 0\nmax_queued_bytes 0\n");
    brokerProcess =
        std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/sbin/mosquitto", "-c", path});
    if (!waitUntil([this] { return mqtt_test::isListening(brokerPort); })) {
        throw std::runtime_error("the broker did not start");
    }
}

void Services::startService(std::chrono::seconds keepalive)
{
    writeFile("/etc/norq/mqtt.conf",
              "[broker]\nhost=127.0.0.1\nport=" + std::to_string(brokerPort) +
                  "\nkeepalive=" + std::to_string(keepalive.count()) + "\n");
    std::string filters = "[common]\ntopicPrefixSetting=custom\ncustomTopicPrefix=benchmark\n"
                          "appendEventTopic=true\nincludeTopicNamespaces=false\n"
                          "includeSerialNumberInPayload=false\n";
    for (const int qos : {0, 1, 2}) {
        const std::string number = std::to_string(qos);
        filters.append("\n[").append(number).append("]\ntopicFilter=").append(eventFilter(qos));
        filters.append("\nqos=").append(number).append("\nretain=none\n");
    }
    writeFile("/etc/tovrel/event_to_mqtt_v2.conf", filters);
    serviceProcess =
        std::make_unique<ChildProcess>(std::vector<std::string>{fromSandbox("SANDBOX_TOVREL")});
}

/** Sends events until one arrives, and waits until none comes any more. */
void Services::proveRoad(int qos) const
{
    const SharedMemory shared;
    const Role subscriber([&] { subscribe(brokerPort, qos, *shared); });
    if (!waitUntil([&] { return shared->subscribed.load(); })) {
        throw std::runtime_error("the broker does not answer");
    }
    const Role sender([&] {
        const auto road = makeEventSender(qos);
        while (shared->received == 0) {
            road->send(FIRST_NUMBER);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    if (!waitUntil([&] { return shared->received > 0 && !sender.isRunning(); })) {
        throw std::runtime_error("no event reaches the broker");
    }
    waitUntilQuiet(*shared);
}

} // namespace end_to_end
