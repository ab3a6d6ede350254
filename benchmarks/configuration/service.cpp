#include "service.h"

#include "bus.h"
#include "end_to_end/process.h"
#include "environment.h"
#include "support/wait_until.h"

#include <stdexcept>
#include <thread>

namespace configuration {
namespace {

/** Longer than the service ever waits for an answer of another one while it has work. */
constexpr std::chrono::milliseconds REST{60};
constexpr std::chrono::milliseconds STEP{2};

} // namespace

Service::Service(sd_bus *bus)
{
    // Of the one before, which was killed, the bus may not know yet that it is gone.
    const auto isFree = [bus] { return !benchmarks::isOwned(bus, benchmarks::SERVICE_NAME); };
    if (!test_support::waitUntil(isFree)) {
        throw std::runtime_error("another service runs already");
    }
    process = std::make_unique<test_support::ChildProcess>(
        std::vector<std::string>{benchmarks::fromSandbox("SANDBOX_TOVREL")});
    if (!test_support::waitUntil([&] { return !isFree(); })) {
        throw std::runtime_error("the service did not start");
    }
    benchmarks::call(bus, benchmarks::newPing(bus, benchmarks::SERVICE_NAME).get());
}

Clock::time_point Service::waitUntilAtRest() const
{
    double before = end_to_end::cpuSeconds(pid());
    auto since = Clock::now();
    while (Clock::now() - since < REST) {
        std::this_thread::sleep_for(STEP);
        const double now = end_to_end::cpuSeconds(pid());
        if (now > before) {
            since = Clock::now();
        }
        before = now;
    }
    return since;
}

} // namespace configuration
