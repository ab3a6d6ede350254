/**
 * What the service takes while nothing happens, beside a minimal program that links the same
 * libraries and holds the same connections: memory and wake-ups; and whether its memory is the same
 * after a million events. docs/benchmarks.md says what each figure means.
 *
 * usage: scripts/sandbox --no-service BUILD/benchmarks/idle_service [--quick]
 *
 * Exit status: 0; 1 when a figure is beyond what is promised, or the measurement failed.
 */
#include "end_to_end/measurement.h"
#include "end_to_end/services.h"
#include "usage.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>

namespace {

using namespace end_to_end;
using std::chrono::seconds;

/** What the service may take of what the minimal program takes. */
constexpr double MEMORY_PROMISE = 1.3;
/** So short that pings come often enough to be told from everything else. */
constexpr seconds KEEPALIVE{5};
/** A ping is sent, and its answer is read. */
constexpr long WAKE_UPS_PER_PING = 2;
constexpr seconds SETTLING{3};
/** Parts of the events that are compared with the first one. */
constexpr unsigned long PARTS_OF_EVENTS = 4;

/** What is measured, and for how long. */
struct Options {
    seconds idleTime{30};
    unsigned long eventsOfPart = 250'000;
    /** Kilobytes by which memory may grow and count as flat: a longer backlog than before. */
    long flatKib = 256;
};

void printMemory(const char *what, long service, long minimal)
{
    std::printf("  %-44s %10ld %10ld %8.2f\n", what, service, minimal,
                static_cast<double>(service) / static_cast<double>(minimal));
}

bool compareMemory(pid_t service, pid_t minimal)
{
    const Memory ours = memoryOf(service);
    const Memory least = memoryOf(minimal);
    std::printf("  %-44s %10s %10s %8s\n", "", "tovrel", "minimal", "ratio");
    printMemory("shared libraries", ours.libraries, least.libraries);
    printMemory("resident (Rss), KiB", ours.rss, least.rss);
    printMemory("its share of it (Pss), KiB", ours.pss, least.pss);
    printMemory("its own alone (private), KiB", ours.privateKib, least.privateKib);
    return static_cast<double>(ours.rss) <= MEMORY_PROMISE * static_cast<double>(least.rss) &&
           static_cast<double>(ours.pss) <= MEMORY_PROMISE * static_cast<double>(least.pss);
}

void printWakeUps(const char *what, const std::map<std::string, long> &wakeUps)
{
    long sum = 0;
    std::printf("  %-44s", what);
    for (const auto &[thread, count] : wakeUps) {
        std::printf(" %s %ld ", thread.c_str(), count);
        sum += count;
    }
    std::printf(" = %ld\n", sum);
}

bool watchWakeUps(pid_t service, pid_t minimal, pid_t eventService, seconds time)
{
    const auto before = wakeUpsOf(service);
    const auto minimalBefore = wakeUpsOf(minimal);
    const auto eventsBefore = wakeUpsOf(eventService);
    std::this_thread::sleep_for(time);
    const auto ours = difference(wakeUpsOf(service), before);
    const long pings = time / KEEPALIVE + 1;
    std::printf("\n  wake-ups in %ld s, at most %ld of them for a ping each %ld s\n",
                static_cast<long>(time.count()), pings * WAKE_UPS_PER_PING,
                static_cast<long>(KEEPALIVE.count()));
    printWakeUps("tovrel, by thread", ours);
    printWakeUps("minimal", difference(wakeUpsOf(minimal), minimalBefore));
    printWakeUps("event service", difference(wakeUpsOf(eventService), eventsBefore));
    long sum = 0;
    for (const auto &[thread, count] : ours) {
        sum += count;
    }
    return sum <= pings * WAKE_UPS_PER_PING;
}

Figures send(const Services &services, unsigned long count)
{
    Plan plan;
    plan.time = std::chrono::minutes(10);
    plan.count = count;
    return measure(services, Side::EVENTS, 1, plan, {});
}

/** Memory after each part of the events; the first part lets every buffer reach its size. */
bool watchMemory(const Services &services, const Options &options)
{
    bool lossless = send(services, options.eventsOfPart).lossless;
    const Memory before = memoryOf(services.service());
    std::printf("\n  memory after so many events %9s %15s %26s\n", "", "resident, KiB",
                "heap and stacks, KiB");
    Memory after = before;
    for (unsigned long part = 1; part <= PARTS_OF_EVENTS; ++part) {
        std::printf("  %36lu %15ld %26ld\n", part * options.eventsOfPart, after.rss,
                    after.anonymous);
        std::fflush(stdout);
        lossless = send(services, options.eventsOfPart).lossless && lossless;
        after = memoryOf(services.service());
    }
    std::printf("  %36lu %15ld %26ld%s\n", (PARTS_OF_EVENTS + 1) * options.eventsOfPart, after.rss,
                after.anonymous, lossless ? "" : "   EVENTS WERE LOST");
    return lossless && after.anonymous <= before.anonymous + options.flatKib;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        Options options;
        if (argc == 2 && std::strcmp(argv[1], "--quick") == 0) {
            options = {seconds(1), 5'000, 4096};
        } else if (argc > 1) {
            std::fprintf(stderr, "unknown option: %s\n", argv[1]);
            return EXIT_FAILURE;
        }
        const Services services(KEEPALIVE);
        const test_support::ChildProcess minimal({MINIMAL_CLIENT_PATH});
        std::this_thread::sleep_for(SETTLING);
        const bool small = compareMemory(services.service(), minimal.pid());
        const bool silent = watchWakeUps(services.service(), minimal.pid(), services.eventService(),
                                         options.idleTime);
        const bool flat = watchMemory(services, options);
        std::printf("\n  %s\n",
                    small && silent && flat ? "all as promised" : "NOT ALL AS PROMISED");
        return small && silent && flat ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
