/**
 * From a received event to the MQTT message, by steps: extraction, translation, the queue between
 * the two threads; and the work around it: subscribing filters, loading and saving them.
 *
 * The event library is the fake of the tests with its recording off, so the figures are those of
 * this side alone; "allocs" counts C++ allocations an event or call. Saving is durable, into the
 * system's folder for temporary files.
 */
#include "events/event_translation.h"

#include "allocation_counter.h"
#include "events/event_consumer_handler.h"
#include "fakes/call_record.h"
#include "fakes/fake_event_consumer.h"
#include "interfaces/c_handles.h"
#include "unit/events/publishing_bridge.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace {

using namespace tovrel;
using Event = CHandle<event_t, event_free>;

/** An event whose texts have usual lengths; every item is a source. */
Event makeEvent(std::int64_t levels, std::int64_t items)
{
    test::FakeReceivedEvent event;
    for (std::int64_t level = 0; level < levels; ++level) {
        event.items.push_back({"topic" + std::to_string(level), "Level" + std::to_string(level),
                               level == 0 ? "tns1" : "tnsnorq"});
    }
    for (std::int64_t item = 0; item < items; ++item) {
        event.items.push_back(
            {"item" + std::to_string(item), std::to_string(item), std::nullopt, {"onvif-source"}});
    }
    event.json = std::string(static_cast<std::size_t>(100 + 30 * (levels + items)), 'x');
    return Event(test::newFakeEvent(event));
}

void extraction(benchmark::State &state)
{
    const Event event = makeEvent(state.range(0), state.range(1));
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto step : state) {
        EventContainer container;
        extractEvent(container, event.get(), nullptr);
        benchmark::DoNotOptimize(container);
    }
}

void translation(benchmark::State &state)
{
    const Event event = makeEvent(state.range(0), state.range(1));
    EventContainer container;
    extractEvent(container, event.get(), nullptr);
    const PublicationSettings settings;
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto step : state) {
        auto made = mqttTopicFor(container, settings);
        benchmark::DoNotOptimize(made);
    }
}

BENCHMARK(extraction)->ArgNames({"levels", "items"})->ArgsProduct({{3, 10, 100}, {1, 8, 64}});
BENCHMARK(translation)->ArgNames({"levels", "items"})->ArgsProduct({{3, 10, 100}, {1, 8, 64}});

/** Counts what is published. */
class CountingBridge : public test::PublishingBridge {
public:
    void publish(const std::string & /*topic*/, bool /*useDeviceTopicPrefix*/,
                 const char * /*payload*/, std::size_t /*payloadLength*/, int /*qos*/,
                 bool /*retain*/) override
    {
        ++count;
    }

    std::atomic<std::uint64_t> count = 0;
};

/** Queueing while disconnected: the queue is full, the worker waits. */
void enqueueDisconnected(benchmark::State &state)
{
    CountingBridge bridge;
    EventConsumerHandler consumer(&bridge);
    consumer.start("SN1");
    const Event event = makeEvent(3, 1);
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto step : state) {
        consumer.enqueueEvent(std::make_shared<EventContainer>(), event.get());
    }
}

/** Queueing and publishing, at most 1000 events ahead of the worker. */
void enqueueToPublish(benchmark::State &state)
{
    CountingBridge bridge;
    EventConsumerHandler consumer(&bridge);
    consumer.getPublicationConfig().setTopicPrefixSetting("custom");
    consumer.getPublicationConfig().setCustomTopicPrefix("building/floor-1/room-2");
    consumer.start("SN1");
    consumer.setMessagingStatus(false, true);
    const Event event = makeEvent(3, 1);
    std::uint64_t sent = 0;
    for ([[maybe_unused]] auto step : state) {
        consumer.enqueueEvent(std::make_shared<EventContainer>(), event.get());
        ++sent;
        while (sent - bridge.count > 1000) {
        }
    }
    while (bridge.count < sent) {
    }
    state.SetItemsProcessed(state.iterations());
}

/** One event at a time: from queueing to publication, the worker's wake-up included. */
void enqueueToPublishOneByOne(benchmark::State &state)
{
    CountingBridge bridge;
    EventConsumerHandler consumer(&bridge);
    consumer.start("SN1");
    consumer.setMessagingStatus(false, true);
    const Event event = makeEvent(3, 1);
    std::uint64_t sent = 0;
    for ([[maybe_unused]] auto step : state) {
        consumer.enqueueEvent(std::make_shared<EventContainer>(), event.get());
        ++sent;
        while (bridge.count < sent) {
        }
    }
}

BENCHMARK(enqueueDisconnected);
BENCHMARK(enqueueToPublish)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(enqueueToPublishOneByOne)->UseRealTime()->MeasureProcessCPUTime();

PublicationConfig makeConfig(std::int64_t filters)
{
    PublicationConfig config;
    for (std::int64_t number = 0; number < filters; ++number) {
        const auto text = "onvif:Device/norq:Level" + std::to_string(number) + "/Beta//.";
        config.setEventFilter(std::to_string(number), {text.c_str(), 1, "property"});
    }
    return config;
}

void subscribing(benchmark::State &state)
{
    EventConsumerHandler consumer(nullptr);
    consumer.getPublicationConfig() = makeConfig(state.range(0));
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto step : state) {
        consumer.subscribeEventFilters();
        consumer.unsubscribeEventFilters();
    }
}

void saving(benchmark::State &state)
{
    const PublicationConfig config = makeConfig(256);
    for ([[maybe_unused]] auto step : state) {
        config.save();
    }
}

void loading(benchmark::State &state)
{
    makeConfig(256).save();
    for ([[maybe_unused]] auto step : state) {
        PublicationConfig config;
        config.load(true);
        if (config.getEventFilters().size() != 256) {
            state.SkipWithError("not every filter was loaded");
        }
    }
}

BENCHMARK(subscribing)->ArgName("filters")->Arg(1)->Arg(64)->Arg(256)->Arg(512);
BENCHMARK(saving)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(loading)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    tovrel::test::setRecording(false);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
