#include "measurement.h"

#include "process.h"
#include "roads.h"
#include "support/wait_until.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::waitUntil;

/** Longest time that a sender may need beyond what its plan says. */
constexpr seconds PATIENCE{60};
constexpr milliseconds PERIOD{1};
/** Bursts of one length that must all arrive. */
constexpr int BURSTS = 2;

/** Takes a credit; false when none is given for so long that something must be lost. */
bool takeCredit(sem_t &credits)
{
    timespec end{};
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += 2;
    while (sem_timedwait(&credits, &end) != 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

/** Sends by the plan, after one message that only shows that the road is open. */
void runSender(Sender &road, const Plan &plan, SharedState &shared)
{
    std::uint64_t count = 0;
    const auto sendOne = [&] {
        if (count < SharedState::MAX_TIMED) {
            shared.sentAt[count] = now();
        }
        road.send(FIRST_NUMBER + count++);
    };
    takeCredit(shared.credits);
    sendOne();
    shared.senderReady = true;
    sem_wait(&shared.begin);
    const auto start = std::chrono::steady_clock::now();
    if (plan.pace == Plan::Pace::BURST) {
        while (count <= plan.count) {
            sendOne();
        }
    }
    while (plan.pace != Plan::Pace::BURST && std::chrono::steady_clock::now() < start + plan.time) {
        if (plan.pace == Plan::Pace::PACED) {
            std::this_thread::sleep_until(start + PERIOD * count);
        } else if (count % MESSAGES_PER_CREDIT == 0 && !takeCredit(shared.credits)) {
            break;
        }
        sendOne();
        if (plan.count > 0 && count > plan.count) {
            break;
        }
    }
    shared.sent = count;
    shared.finished = true;
    while (true) { // its connection stays until the measurement is over
        pause();
    }
}

using Processes = std::array<std::optional<pid_t>, PARTS>;

std::array<double, PARTS> cpuOf(const Processes &processes)
{
    std::array<double, PARTS> cpu{};
    for (std::size_t part = 0; part < PARTS; ++part) {
        cpu.at(part) = processes.at(part) ? cpuSeconds(*processes.at(part)) : 0;
    }
    return cpu;
}

void addLatency(Figures &figures, const SharedState &shared)
{
    const std::size_t count = std::min<std::size_t>(shared.received, SharedState::MAX_TIMED);
    std::vector<std::int64_t> sorted(shared.latency.begin() + 1,
                                     shared.latency.begin() + static_cast<std::ptrdiff_t>(count));
    if (sorted.empty()) {
        return;
    }
    std::sort(sorted.begin(), sorted.end());
    figures.median = static_cast<double>(sorted[sorted.size() / 2]) / 1000;
    figures.p99 = static_cast<double>(sorted[sorted.size() * 99 / 100]) / 1000;
}

void require(bool condition, const char *what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

} // namespace

Figures measure(const Services &services, Side side, int qos, const Plan &plan,
                const Sample &sample)
{
    const SharedMemory shared;
    const Role subscriber([&] { subscribe(services.port(), qos, *shared); });
    require(waitUntil([&] { return shared->subscribed.load(); }), "the broker does not answer");
    const Role sender([&] {
        const auto road = side == Side::EVENTS ? makeEventSender(qos)
                                               : makeDirectSender(services.port(), qos, sample);
        runSender(*road, plan, *shared);
    });
    require(waitUntil([&] { return shared->senderReady && shared->received > 0; }),
            "the first message did not arrive");

    const bool events = side == Side::EVENTS;
    const auto onlyEvents = [&](pid_t process) {
        return events ? std::optional(process) : std::nullopt;
    };
    const Processes processes{sender.pid(), onlyEvents(services.eventService()),
                              onlyEvents(services.service()), services.broker(), subscriber.pid()};
    const auto before = cpuOf(processes);
    const std::int64_t start = now();
    sem_post(&shared->begin);
    require(
        waitUntil([&] { return shared->finished || !sender.isRunning(); }, plan.time + PATIENCE) &&
            shared->finished,
        "the sender failed");
    waitUntilQuiet(*shared);
    const auto after = cpuOf(processes);

    Figures figures;
    figures.received = shared->received - 1;
    figures.lossless = shared->received == shared->sent && shared->gaps == 0;
    figures.rate = static_cast<double>(figures.received) * 1e9 /
                   static_cast<double>(shared->lastArrival - start);
    for (std::size_t part = 0; part < PARTS; ++part) {
        figures.cpu.at(part) = (after.at(part) - before.at(part)) * 100'000 /
                               static_cast<double>(std::max<std::uint64_t>(1, figures.received));
    }
    addLatency(figures, *shared);
    return figures;
}

Sample takeSample(const Services &services, int qos)
{
    const SharedMemory shared;
    const Role subscriber([&] { subscribe(services.port(), qos, *shared); });
    require(waitUntil([&] { return shared->subscribed.load(); }), "the broker does not answer");
    const Role sender([&] { makeEventSender(qos)->send(FIRST_NUMBER); });
    require(waitUntil([&] { return shared->received > 0; }), "the first message did not arrive");
    return shared->sample;
}

std::uint64_t longestBurst(const Services &services, Side side, int qos, std::uint64_t most,
                           const Sample &sample)
{
    const auto arrives = [&](std::uint64_t count) {
        for (int burst = 0; burst < BURSTS; ++burst) {
            const Plan plan{Plan::Pace::BURST, milliseconds(0), count};
            if (!measure(services, side, qos, plan, sample).lossless) {
                return false;
            }
        }
        return true;
    };
    if (arrives(most)) {
        return most;
    }
    std::uint64_t lossless = 0;
    std::uint64_t lossy = most;
    for (std::uint64_t count = std::min<std::uint64_t>(1000, most / 2); count < lossy; count *= 2) {
        if (!arrives(count)) {
            lossy = count;
            break;
        }
        lossless = count;
    }
    while (lossless > 0 && lossy - lossless > lossy / 10) {
        const std::uint64_t middle = (lossless + lossy) / 2;
        (arrives(middle) ? lossless : lossy) = middle;
    }
    return lossless;
}

} // namespace end_to_end
