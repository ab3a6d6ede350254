#include "measurement.h"

#include "empty_service.h"
#include "end_to_end/process.h"
#include "environment.h"

#include <algorithm>
#include <vector>

namespace configuration {
namespace {

using Cpu = std::array<double, PARTS>;
using tovrel::BusMessage;

constexpr int EMPTY_CALLS = 200;

double milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/** How long one call takes. Making it and looking at its answer is not counted. */
double timeOf(sd_bus *bus, const BusMessage &message, BusMessage &answer)
{
    const auto start = Clock::now();
    answer = benchmarks::call(bus, message.get());
    return milliseconds(Clock::now() - start);
}

template <typename Make>
double medianOfEmptyCalls(sd_bus *bus, const Make &make)
{
    std::vector<double> times;
    BusMessage answer;
    for (int call = 0; call < EMPTY_CALLS; ++call) {
        times.push_back(timeOf(bus, make(), answer));
    }
    return medianOf(times);
}

Cpu cpuOf(const Service &service)
{
    using benchmarks::processOfSandbox;
    return {end_to_end::cpuSeconds(service.pid()), end_to_end::cpuSeconds(processOfSandbox("bus")),
            end_to_end::cpuSeconds(processOfSandbox("eventd")),
            end_to_end::cpuSeconds(processOfSandbox("deviced")),
            end_to_end::cpuSeconds(processOfSandbox("broker"))};
}

/** A change may leave more to be done than the time of its call. */
std::size_t mostCalls(const Operation &operation, const Options &options)
{
    constexpr std::size_t MOST_READS = 5000;
    return operation.changes ? options.changes : MOST_READS;
}

/** Each call from a service at rest. Gives the bytes of an answer. */
std::size_t measureAlone(sd_bus *bus, const Service &service, const Operation &operation,
                         const Options &options, Result &result)
{
    std::vector<double> times;
    std::size_t bytes = 0;
    const auto end = Clock::now() + options.time;
    const std::size_t most = mostCalls(operation, options);
    while (times.size() < options.fewest || (times.size() < most && Clock::now() < end)) {
        const BusMessage message = operation.make(bus, static_cast<int>(times.size()));
        if (operation.changes) {
            static_cast<void>(service.waitUntilAtRest());
        }
        BusMessage answer;
        times.push_back(timeOf(bus, message, answer));
        bytes = operation.check(answer.get());
    }
    result.median = medianOf(times);
    result.best = *std::min_element(times.begin(), times.end());
    return bytes;
}

/** One call after the other, and what they cost all processes until the service is at rest. */
void measureRow(sd_bus *bus, const Service &service, const Operation &operation,
                const Options &options, Result &result)
{
    static_cast<void>(service.waitUntilAtRest());
    const Cpu before = cpuOf(service);
    std::size_t calls = 0;
    double spent = 0;
    Clock::time_point last;
    const std::size_t most = mostCalls(operation, options);
    while (calls < options.fewest || (calls < most && spent < milliseconds(options.time))) {
        const BusMessage message = operation.make(bus, static_cast<int>(calls));
        BusMessage answer;
        spent += timeOf(bus, message, answer);
        last = Clock::now();
        operation.check(answer.get());
        ++calls;
    }
    const auto rest = service.waitUntilAtRest() - last;
    const Cpu after = cpuOf(service);
    const auto count = static_cast<double>(calls);
    result.rate = count * 1000 / spent;
    result.rest = std::max(0.0, milliseconds(rest)) / count;
    for (std::size_t part = 0; part < PARTS; ++part) {
        result.cpu.at(part) = (after.at(part) - before.at(part)) * 1000 / count;
    }
}

} // namespace

Result measure(sd_bus *bus, const Service &service, const Operation &operation,
               const Options &options)
{
    Result result;
    static_cast<void>(service.waitUntilAtRest());
    result.empty = medianOfEmptyCalls(bus, [bus] { return newEmptyCall(bus); });
    const std::size_t bytes = measureAlone(bus, service, operation, options, result);
    result.sameSize =
        medianOfEmptyCalls(bus, [&] { return newExchange(bus, operation.requestBytes, bytes); });
    measureRow(bus, service, operation, options, result);
    return result;
}

} // namespace configuration
