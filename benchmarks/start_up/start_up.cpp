/**
 * How long the service takes from its start until it owns its name, and until it answers its first
 * call, beside a minimal program that asks the same of the platform. docs/benchmarks.md says what
 * each figure means.
 *
 * usage: scripts/sandbox --no-service BUILD/benchmarks/start_up [--quick]
 *
 * Exit status: 0; 1 when the service takes more on top of the minimal program than is promised, or
 * the measurement failed.
 */
#include "bus.h"
#include "configuration/operations.h"
#include "configuration/service.h"
#include "end_to_end/process.h"
#include "environment.h"
#include "support/child_process.h"
#include "support/wait_until.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using benchmarks::checked;
using configuration::Clock;
using test_support::ChildProcess;

/** Milliseconds that the service may take on top of the platform's answers. */
constexpr double PROMISE = 30;
constexpr int ITEMS = 256;
constexpr std::chrono::seconds LONGEST_START{20};

/** Milliseconds from before the program's start. */
struct Start {
    double named = 0;
    double answered = 0;
    double cpu = 0; // of the program until then, all threads together
};

/** Learns from the bus that a name has got an owner. */
class NameWatch {
public:
    NameWatch(sd_bus *connection, std::string watched) : bus(connection), name(std::move(watched))
    {
        checked(sd_bus_match_signal(bus, tovrel::OutParameter(slot), "org.freedesktop.DBus",
                                    "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "NameOwnerChanged", onOwnerChanged, this),
                "match");
    }

    /** Waits for an owner; throws when there is none in time. */
    Clock::time_point wait()
    {
        const auto end = Clock::now() + LONGEST_START;
        while (taken == Clock::time_point()) {
            while (checked(sd_bus_process(bus, nullptr), "sd_bus_process") > 0) {
            }
            if (Clock::now() > end) {
                throw std::runtime_error(name + " was not taken");
            }
            if (taken == Clock::time_point()) {
                checked(sd_bus_wait(bus, 1'000'000), "sd_bus_wait");
            }
        }
        return taken;
    }

private:
    static int onOwnerChanged(sd_bus_message *signal, void *self, sd_bus_error * /*error*/) noexcept
    {
        auto &watch = *static_cast<NameWatch *>(self);
        const char *changed = nullptr;
        const char *owner = nullptr;
        if (sd_bus_message_read(signal, "sss", &changed, nullptr, &owner) > 0 &&
            watch.name == changed && *owner != '\0') {
            watch.taken = Clock::now();
        }
        return 0;
    }

    sd_bus *bus;
    std::string name;
    Clock::time_point taken;
    tovrel::CHandle<sd_bus_slot, sd_bus_slot_unref> slot;
};

Start startOnce(sd_bus *bus, const char *name, const std::vector<std::string> &command)
{
    if (!test_support::waitUntil([&] { return !benchmarks::isOwned(bus, name); })) {
        throw std::runtime_error(std::string(name) + " is owned already");
    }
    NameWatch watch(bus, name);
    const auto begin = Clock::now();
    const ChildProcess program(command);
    const auto named = watch.wait();
    benchmarks::call(bus, benchmarks::newPing(bus, name).get());
    const auto answered = Clock::now();
    const double cpu = end_to_end::cpuSeconds(program.pid()) * 1000;
    const auto since = [begin](Clock::time_point time) {
        return std::chrono::duration<double, std::milli>(time - begin).count();
    };
    return {since(named), since(answered), cpu};
}

/** Many starts of both programs, in turns. */
struct Starts {
    std::vector<double> named;
    std::vector<double> answered;
    std::vector<double> cpu;

    void add(const Start &start)
    {
        named.push_back(start.named);
        answered.push_back(start.answered);
        cpu.push_back(start.cpu);
    }
};

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double bestOf(const std::vector<double> &values)
{
    return *std::min_element(values.begin(), values.end());
}

/** The median of what one takes more than the other, pair by pair. */
double onTop(const std::vector<double> &service, const std::vector<double> &minimal)
{
    std::vector<double> differences;
    for (std::size_t pair = 0; pair < service.size(); ++pair) {
        differences.push_back(service[pair] - minimal[pair]);
    }
    return medianOf(differences);
}

double printRow(const char *what, const std::vector<double> &service,
                const std::vector<double> &minimal)
{
    const double more = onTop(service, minimal);
    std::printf("    %-22s %9.1f %8.1f %14.1f %8.1f %10.1f\n", what, medianOf(service),
                bestOf(service), medianOf(minimal), bestOf(minimal), more);
    return more;
}

/** Compares starts with what /etc/tovrel holds. Gives what the service takes more. */
double compare(sd_bus *bus, const std::string &title, int items, int rounds)
{
    Starts service;
    Starts minimal;
    for (int round = 0; round < rounds; ++round) {
        service.add(
            startOnce(bus, benchmarks::SERVICE_NAME, {benchmarks::fromSandbox("SANDBOX_TOVREL")}));
        minimal.add(
            startOnce(bus, benchmarks::OWN_NAME, {MINIMAL_SERVICE_PATH, std::to_string(items)}));
    }
    std::printf("  %s\n", title.c_str());
    const double named = printRow("name owned", service.named, minimal.named);
    const double answered = printRow("first call answered", service.answered, minimal.answered);
    printRow("CPU time until then", service.cpu, minimal.cpu);
    return std::max(named, answered);
}

/** Has the service write a configuration of so many items of each kind. */
void configure(sd_bus *bus, int items)
{
    const configuration::Service service(bus);
    const auto import =
        configuration::importing("import", items, true, configuration::Items::CONCRETE);
    const auto message = import.make(bus, 0);
    import.check(benchmarks::call(bus, message.get()).get());
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const bool quick = argc == 2 && std::strcmp(argv[1], "--quick") == 0;
        if (argc > 1 && !quick) {
            std::fprintf(stderr, "unknown option: %s\n", argv[1]);
            return EXIT_FAILURE;
        }
        const int rounds = quick ? 1 : 31;
        std::printf("%s\n%d starts of each program, in turns; milliseconds\n\n",
                    benchmarks::machineLine().c_str(), rounds);
        benchmarks::allowOwnName();
        const benchmarks::Bus bus = benchmarks::openBus();
        std::printf("    %-22s %9s %8s %14s %8s %10s\n", "", "tovrel", "best", "minimal", "best",
                    "on top");
        double more = compare(bus.get(), "nothing configured", 0, rounds);
        configure(bus.get(), ITEMS);
        more = std::max(more, compare(bus.get(), "256 items and 256 event filters", ITEMS, rounds));
        const bool asPromised = quick || more < PROMISE;
        std::printf("\n  %s\n", asPromised ? "as promised" : "NOT AS PROMISED");
        return asPromised ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
