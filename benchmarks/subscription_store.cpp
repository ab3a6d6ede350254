/**
 * Loading and saving 256 MQTT-to-event items, the most that a store hands out ids for.
 *
 * Saving is shown twice: through the configuration-file helper, flushes of file and folder
 * included, and as a plain write of the same text, which survives no power cut. The files are in a
 * new folder below TMPDIR (by default the system's temporary folder), so the flushes cost what that
 * folder's disk takes; on a memory file system they cost almost nothing.
 */
#include "fakes/fake_config_paths.h"
#include "mqtt/subscription_file.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

namespace {

constexpr std::size_t ITEMS = tovrel::SubscriptionStore::ID_COUNT;

tovrel::SubscriptionStore makeStore()
{
    tovrel::SubscriptionStore store;
    for (std::size_t number = 0; number < ITEMS; ++number) {
        store.addSubscription("site/building/floor-" + std::to_string(number) + "/+/temperature",
                              true, 1, number % 2 == 0);
    }
    return store;
}

std::string filePath()
{
    return tovrel::test::configFolder() / "benchmark.conf";
}

/** Reports the size of the text that every step reads or writes. */
void countBytes(benchmark::State &state)
{
    const std::size_t size = tovrel::formatSubscriptions(makeStore().items).size();
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void load(benchmark::State &state)
{
    const std::string path = filePath();
    tovrel::saveSubscriptionFile(path.c_str(), makeStore());
    for ([[maybe_unused]] auto step : state) {
        tovrel::SubscriptionStore store;
        tovrel::loadSubscriptionFile(path.c_str(), store);
        if (store.items.size() != ITEMS) {
            state.SkipWithError("not every item was loaded");
            break;
        }
    }
    countBytes(state);
}

void saveDurably(benchmark::State &state)
{
    const std::string path = filePath();
    const tovrel::SubscriptionStore store = makeStore();
    for ([[maybe_unused]] auto step : state) {
        tovrel::saveSubscriptionFile(path.c_str(), store);
    }
    countBytes(state);
}

void saveWithoutFlush(benchmark::State &state)
{
    const std::string path = filePath();
    const tovrel::SubscriptionStore store = makeStore();
    for ([[maybe_unused]] auto step : state) {
        std::ofstream file(path, std::ios::trunc);
        file << tovrel::formatSubscriptions(store.items);
        if (!file.flush()) {
            state.SkipWithError("the file could not be written");
            break;
        }
    }
    countBytes(state);
}

void copyStore(benchmark::State &state)
{
    const tovrel::SubscriptionStore store = makeStore();
    for ([[maybe_unused]] auto step : state) {
        tovrel::SubscriptionStore copy = store;
        benchmark::DoNotOptimize(copy);
    }
}

// Real time: the process sleeps while the disk flushes.
BENCHMARK(load)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(saveDurably)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(saveWithoutFlush)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(copyStore)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
