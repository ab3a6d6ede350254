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

/** Before each call that changes something. */
constexpr int EMPTY_CALLS = 10;

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

/** Each call from a service at rest, and calls that do nothing in the same moments. */
void measureAlone(sd_bus *bus, const Service &service, const Operation &operation,
                  const Options &options, Result &result)
{
    BusMessage answer;
    static_cast<void>(timeOf(bus, operation.make(bus, 1), answer));
    const std::size_t answerBytes = operation.check(answer.get());
    std::vector<double> times;
    std::vector<double> empty;
    std::vector<double> sameSize;
    const auto end = Clock::now() + options.time;
    const std::size_t most = mostCalls(operation, options);
    while (times.size() < options.fewest || (times.size() < most && Clock::now() < end)) {
        const BusMessage message = operation.make(bus, static_cast<int>(times.size()));
        if (operation.changes) {
            static_cast<void>(service.waitUntilAtRest());
        }
        for (int turn = 0; turn < (operation.changes ? EMPTY_CALLS : 1); ++turn) {
            empty.push_back(timeOf(bus, newEmptyCall(bus), answer));
            sameSize.push_back(
                timeOf(bus, newExchange(bus, operation.requestBytes, answerBytes), answer));
        }
        times.push_back(timeOf(bus, message, answer));
        operation.check(answer.get());
    }
    result.median = medianOf(times);
    result.best = *std::min_element(times.begin(), times.end());
    result.empty = medianOf(empty);
    result.sameSize = medianOf(sameSize);
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
    measureAlone(bus, service, operation, options, result);
    measureRow(bus, service, operation, options, result);
    return result;
}

} // namespace configuration
