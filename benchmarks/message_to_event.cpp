/**
 * From the MQTT client's message callback to the event handed to the event service, with 1, 16 and
 * 256 subscriptions of which one matches: shows how the cost grows with the others.
 *
 * The service's own code and libmosquitto's topic matching are real. The event library is the fake
 * of the tests with its recording off (some map and text copies an event), so the figures are those
 * of this process alone: no broker, no bus, no event service.
 */
#include "events/event_consumer_handler.h"
#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_event.h"
#include "fakes/fake_mqtt.h"
#include "fakes/mock_dbus_handler.h"
#include "mqtt/event_bridge.h"
#include "mqtt/event_producer_handler.h"
#include "mqtt/message_callback.h"

#include <benchmark/benchmark.h>
#include <gmock/gmock.h>
#include <mosquitto.h>

#include <memory>
#include <string>

namespace {

tovrel::EventBridge *runningBridge = nullptr;

bool topicMatches(const char *topicFilter, const char *topic)
{
    bool matches = false;
    return mosquitto_topic_matches_sub(topicFilter, topic, &matches) == MOSQ_ERR_SUCCESS && matches;
}

/** One item that matches TOPIC, stored behind the others that do not. */
tovrel::SubscriptionStore makeStore(std::int64_t items)
{
    tovrel::SubscriptionStore store;
    for (std::int64_t number = 1; number < items; ++number) {
        store.addSubscription("site/building/floor-" + std::to_string(number) + "/+/temperature",
                              false, 1, false);
    }
    store.addSubscription("site/building/roof/+/temperature", false, 1, false);
    return store;
}

void messageToEvent(benchmark::State &state)
{
    constexpr const char *TOPIC = "site/building/roof/sensor-1/temperature";
    const std::string payload(300, 'x');
    runningBridge->getSubscriptions() = makeStore(state.range(0));
    const unsigned long sentBefore = tovrel::test::fakeEvents().sentCount;
    for ([[maybe_unused]] auto step : state) {
        tovrel::messageCallback(TOPIC, false, payload.data(), static_cast<int>(payload.size()),
                                runningBridge);
    }
    const unsigned long sent = tovrel::test::fakeEvents().sentCount - sentBefore;
    if (sent != static_cast<unsigned long>(state.iterations())) {
        state.SkipWithError("not every message became one event");
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(messageToEvent)->Arg(1)->Arg(16)->Arg(256);

gboolean runBenchmarks(gpointer data)
{
    runningBridge = static_cast<tovrel::EventBridge *>(data);
    tovrel::test::setRecording(false);
    benchmark::RunSpecifiedBenchmarks();
    runningBridge->quit();
    return G_SOURCE_REMOVE;
}

} // namespace

/** The benchmarks run inside the main loop of a bridge that was started as in production. */
int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    tovrel::test::fakeMqtt().topicMatches = topicMatches;
    tovrel::EventBridge bridge;
    std::unique_ptr<tovrel::BaseDbusHandler> dbus =
        std::make_unique<testing::NiceMock<tovrel::test::MockDbusHandler>>();
    std::unique_ptr<tovrel::BaseEventProducerHandler> producer =
        std::make_unique<tovrel::EventProducerHandler>();
    std::unique_ptr<tovrel::BaseEventConsumerHandler> consumer =
        std::make_unique<tovrel::EventConsumerHandler>(&bridge);
    g_idle_add_full(G_PRIORITY_LOW, runBenchmarks, &bridge, nullptr);
    bridge.run(dbus, producer, consumer);
    return 0;
}
