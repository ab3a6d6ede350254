/**
 * Device events on their way to MQTT, from end to end, beside libmosquitto publishing the same
 * topics and payloads straight to the same broker: sustained rate without loss, longest burst
 * without loss, latency, and what each process costs. docs/benchmarks.md says what each figure
 * means.
 *
 * usage: scripts/sandbox --no-service BUILD/benchmarks/end_to_end [--quick] [--seconds N]
 *            [--rounds N] [--qos N] [--burst N]
 *
 * Exit status: 0; 1 when a message of a sustained load or of a burst of 1000 events was lost, or
 * the measurement failed.
 */
#include "environment.h"
#include "measurement.h"
#include "services.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace end_to_end;
using std::chrono::milliseconds;

constexpr std::uint64_t PROMISED_BURST = 1000;
constexpr std::uint64_t LONGEST_BURST = 100'000;

/** What is measured, and for how long. */
struct Options {
    milliseconds time{4000};
    int rounds = 3;
    std::uint64_t longestBurst = LONGEST_BURST;
    std::vector<int> qos{0, 1, 2};
};

/** Both sides of one QoS. */
struct Comparison {
    std::array<Figures, 2> sustained;
    std::array<Figures, 2> paced;
    std::array<std::uint64_t, 2> burst{};
    bool lossless = true; // what must not be lost was not lost
};

constexpr std::array<Side, 2> SIDES{Side::EVENTS, Side::DIRECT};

Comparison compare(const Services &services, int qos, const Options &options)
{
    Comparison result;
    const Sample sample = takeSample(services, qos);
    for (int round = 0; round < options.rounds; ++round) {
        for (const std::size_t side : {0U, 1U}) {
            const Plan plan{Plan::Pace::WINDOW, options.time, 0};
            const Figures figures = measure(services, SIDES.at(side), qos, plan, sample);
            result.lossless = result.lossless && figures.lossless;
            if (figures.rate > result.sustained.at(side).rate) {
                result.sustained.at(side) = figures;
            }
        }
    }
    for (const std::size_t side : {0U, 1U}) {
        const Plan plan{Plan::Pace::PACED, options.time, 0};
        result.paced.at(side) = measure(services, SIDES.at(side), qos, plan, sample);
        result.lossless = result.lossless && result.paced.at(side).lossless;
        result.burst.at(side) =
            longestBurst(services, SIDES.at(side), qos, options.longestBurst, sample);
    }
    result.lossless = result.lossless && result.burst[0] >= PROMISED_BURST;
    return result;
}

void printRow(const char *what, double events, double direct, int decimals)
{
    std::printf("  %-36s %12.*f %12.*f %8.2f\n", what, decimals, events, decimals, direct,
                events / direct);
}

void printCost(const char *what, double events, double direct)
{
    if (direct > 0) {
        printRow(what, events, direct, 2);
    } else {
        std::printf("  %-36s %12.2f %12s\n", what, events, "-");
    }
}

void print(int qos, const Comparison &result, const Options &options)
{
    const auto &[events, direct] = result.sustained;
    std::printf("QoS %d%s\n", qos, result.lossless ? "" : "   MESSAGES WERE LOST");
    printRow("sustained without loss, per second", events.rate, direct.rate, 0);
    printRow("longest burst without loss", static_cast<double>(result.burst[0]),
             static_cast<double>(result.burst[1]), 0);
    printRow("latency at 1000/s, median, us", result.paced[0].median, result.paced[1].median, 0);
    printRow("latency at 1000/s, 99th, us", result.paced[0].p99, result.paced[1].p99, 0);
    std::printf("  CPU seconds per 100,000 messages\n");
    constexpr std::array<const char *, PARTS> NAMES{"  producer / publisher", "  event service",
                                                    "  tovrel", "  mosquitto", "  subscriber"};
    for (std::size_t part = 0; part < PARTS; ++part) {
        printCost(NAMES.at(part), events.cpu.at(part), direct.cpu.at(part));
    }
    std::printf("  (bursts were tried up to %llu)\n\n",
                static_cast<unsigned long long>(options.longestBurst));
}

void setNumber(Options &options, const std::string &option, int number)
{
    if (option == "--seconds") {
        options.time = std::chrono::seconds(number);
    } else if (option == "--rounds") {
        options.rounds = number;
    } else if (option == "--burst") {
        options.longestBurst = static_cast<std::uint64_t>(number);
    } else if (option == "--qos") {
        options.qos = {number};
    } else {
        throw std::runtime_error("unknown option: " + option);
    }
}

Options readOptions(int argc, char **argv)
{
    Options options;
    for (int index = 1; index < argc; ++index) {
        const std::string option = argv[index];
        if (option == "--quick") {
            options = {milliseconds(150), 1, PROMISED_BURST, {0, 1, 2}};
            continue;
        }
        if (index + 1 == argc) {
            throw std::runtime_error("unknown option: " + option);
        }
        setNumber(options, option, std::atoi(argv[++index]));
    }
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const Options options = readOptions(argc, argv);
        std::printf("%s\n", benchmarks::machineLine().c_str());
        const Services services;
        const Sample sample = takeSample(services, 0);
        std::printf("payload of %zu bytes, for instance %s\n\n", std::strlen(sample.payload.data()),
                    sample.payload.data());
        std::printf("  %-36s %12s %12s %8s\n", "", "events", "direct", "ratio");
        bool lossless = true;
        for (const int qos : options.qos) {
            const Comparison result = compare(services, qos, options);
            print(qos, result, options);
            std::fflush(stdout);
            lossless = lossless && result.lossless;
        }
        return lossless ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
