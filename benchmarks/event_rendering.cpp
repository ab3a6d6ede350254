/**
 * Extraction of an event with the real event library, which renders the JSON payload: beside
 * event_translation, whose event library is a fake, this shows the library's part.
 */
#include "allocation_counter.h"
#include "events/event_translation.h"
#include "interfaces/c_handles.h"

#include <norq/event_producer.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

using namespace tovrel;
using Event = CHandle<event_t, event_free>;
using Declaration = CHandle<event_declaration_t, event_declaration_free>;
using Producer = CHandle<event_producer_t, event_producer_free>;

/** A prepared event like those of event_translation; needs no event service. */
Event makeEvent(event_producer_t *producer, std::int64_t levels, std::int64_t items)
{
    const Declaration declaration(event_declaration_new(0, nullptr));
    for (std::int64_t level = 0; level < levels; ++level) {
        const std::string key = "topic" + std::to_string(level);
        const std::string value = "Level" + std::to_string(level);
        event_declaration_add_key_value(declaration.get(), key.c_str(),
                                        event_value_string(value.c_str()), nullptr);
        event_declaration_set_name_space(declaration.get(), key.c_str(),
                                         level == 0 ? "tns1" : "tnsnorq");
    }
    for (std::int64_t item = 0; item < items; ++item) {
        const std::string key = "item" + std::to_string(item);
        event_declaration_add_key(declaration.get(), key.c_str(), EVENT_VALUE_INT, nullptr);
        event_declaration_add_key_tag(declaration.get(), key.c_str(), "onvif-source");
    }
    const int id = event_producer_declare(producer, declaration.get());
    Event event(event_producer_prepare_event(producer, id, 0, nullptr));
    for (std::int64_t item = 0; item < items; ++item) {
        const std::string key = "item" + std::to_string(item);
        event_set_value(event.get(), key.c_str(), event_value_int(item), nullptr);
    }
    return event;
}

void extractionAndRendering(benchmark::State &state)
{
    const Producer producer(event_producer_new("benchmark", nullptr, 1, 0));
    const Event event = makeEvent(producer.get(), state.range(0), state.range(1));
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto step : state) {
        EventContainer container;
        extractEvent(container, event.get(), "0123456789AB");
        benchmark::DoNotOptimize(container);
    }
}

BENCHMARK(extractionAndRendering)
    ->ArgNames({"levels", "items"})
    ->ArgsProduct({{3, 10, 100}, {1, 8, 64}});

} // namespace

int main(int argc, char **argv)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
