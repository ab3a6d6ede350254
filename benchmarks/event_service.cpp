/**
 * Throughput and latency of the event service, producer process to consumer process through the
 * daemon, beside a bare D-Bus signal of the same size over the same bus in the same run.
 *
 * The parent starts a private bus, the daemon, and for each measurement two processes of this
 * program, one that sends and one that receives. They share a counter of what has arrived, so that
 * the sender can go as fast as the receiver takes without overrunning it. Both sides number what
 * they send; a gap counts as a loss and fails the run.
 */
#include "support/child_process.h"
#include "support/private_bus.h"
#include "support/wait_until.h"

#include <norq/event_consumer.h>
#include <norq/event_producer.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using test_support::ChildProcess;

constexpr std::chrono::seconds THROUGHPUT_TIME{3};
constexpr std::chrono::seconds LATENCY_TIME{3};
constexpr std::chrono::milliseconds LATENCY_PERIOD{1};
constexpr std::uint64_t WINDOW = 4096; // sent but not yet received, at most
constexpr int CROWD = 500;             // subscriptions beside the one that matches
constexpr std::size_t MAX_SAMPLES = 10000;
constexpr std::size_t TEXT_SIZE = 240; // with topic, keys and numbers about 300 bytes

constexpr const char *SIGNAL_PATH = "/com/norq/Benchmark1";
constexpr const char *SIGNAL_INTERFACE = "com.norq.Benchmark1";

/** What the processes of one measurement share. */
struct Shared {
    std::atomic<bool> receiverReady;
    std::atomic<std::uint64_t> received;
    std::atomic<std::uint64_t> losses;
    std::atomic<std::uint64_t> sent; // set at the end
    std::atomic<std::int64_t> started;
    std::atomic<std::int64_t> finished; // last arrival
    std::atomic<std::uint64_t> samples;
    std::array<std::int64_t, MAX_SAMPLES> latency; // nanoseconds
};

std::int64_t now()
{
    return Clock::now().time_since_epoch().count();
}

void require(bool condition, const char *what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

Shared *share(const std::string &path)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    require(file >= 0 && ftruncate(file, sizeof(Shared)) == 0, "cannot share memory");
    void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    require(memory != MAP_FAILED, "cannot share memory");
    return static_cast<Shared *>(memory);
}

/** Counts an arrival and the time it took; the numbers must follow on one another. */
void arrived(Shared &shared, std::int64_t number, std::int64_t sentAt)
{
    const std::uint64_t count = shared.received.load(std::memory_order_relaxed);
    const std::int64_t time = now();
    if (static_cast<std::uint64_t>(number) != count) {
        ++shared.losses;
    }
    if (count < MAX_SAMPLES) {
        shared.latency[count] = time - sentAt;
        shared.samples = count + 1;
    }
    shared.finished.store(time, std::memory_order_relaxed);
    shared.received.store(count + 1, std::memory_order_release);
}

/** Calls `sendOne` with rising numbers: at full speed within the window, or once in a period. */
template <typename SendOne>
void sendAll(Shared &shared, bool forLatency, SendOne sendOne)
{
    const auto start = Clock::now();
    const auto end = start + (forLatency ? LATENCY_TIME : THROUGHPUT_TIME);
    shared.started = start.time_since_epoch().count();
    std::uint64_t number = 0;
    while (Clock::now() < end) {
        if (forLatency) {
            std::this_thread::sleep_until(start + LATENCY_PERIOD * number);
        } else if (number - shared.received.load(std::memory_order_acquire) >= WINDOW) {
            std::this_thread::yield();
            continue;
        }
        sendOne(static_cast<std::int64_t>(number++));
    }
    shared.sent = number;
}

/** Subscriptions to other topics, and to other values of an open key of the events sent. */
void crowd(event_consumer_t *consumer)
{
    const auto ignore = [](event_t *event, void *) { event_free(event); };
    for (int index = 0; index < CROWD; ++index) {
        subscribe_expression_t *expression = subscribe_expression_new();
        const std::string value = "other " + std::to_string(index);
        subscribe_expression_add_key_value(expression, index % 2 == 0 ? "topic0" : "text",
                                           value.c_str());
        require(event_consumer_subscribe(consumer, expression, ignore, nullptr) >= 0, "refused");
        subscribe_expression_free(expression);
    }
}

void receiveEvents(Shared &shared, bool crowded)
{
    event_consumer_t *consumer = event_consumer_new("benchmark receiver");
    require(consumer != nullptr, "no consumer");
    if (crowded) {
        crowd(consumer);
    }
    subscribe_expression_t *expression = subscribe_expression_new();
    subscribe_expression_add_key_value(expression, "topic0", "Benchmark");
    const auto callback = [](event_t *event, void *data) {
        arrived(*static_cast<Shared *>(data),
                std::strtoll(event_get_value(event, "number"), nullptr, 10),
                std::strtoll(event_get_value(event, "sent"), nullptr, 10));
        event_free(event);
    };
    require(event_consumer_subscribe(consumer, expression, callback, &shared) >= 0, "refused");
    subscribe_expression_free(expression);
    shared.receiverReady = true;
    pause(); // the parent ends this process
}

void sendEvents(Shared &shared, bool forLatency)
{
    event_producer_t *producer = event_producer_new("benchmark sender", nullptr, -1, 0);
    event_declaration_t *declaration = event_declaration_new(0, nullptr);
    event_declaration_add_key_value(declaration, "topic0", event_value_string("Benchmark"),
                                    nullptr);
    event_declaration_add_key(declaration, "number", EVENT_VALUE_INT, nullptr);
    event_declaration_add_key(declaration, "sent", EVENT_VALUE_INT, nullptr);
    event_declaration_add_key(declaration, "text", EVENT_VALUE_STRING, nullptr);
    const int id = event_producer_declare(producer, declaration);
    event_declaration_free(declaration);
    require(id >= 0, "the declaration was refused");
    const std::string text(TEXT_SIZE, 'x');
    sendAll(shared, forLatency, [&](std::int64_t number) {
        event_t *event = event_producer_prepare_event(producer, id, 0, nullptr);
        event_set_value(event, "number", event_value_int(number), nullptr);
        event_set_value(event, "text", event_value_string(text.c_str()), nullptr);
        event_set_value(event, "sent", event_value_int(now()), nullptr);
        require(event_producer_send_event(producer, event, nullptr) != 0, "sending failed");
        event_free(event);
    });
    event_producer_free(producer);
}

void receiveSignals(Shared &shared)
{
    sd_bus *bus = nullptr;
    require(sd_bus_open_system(&bus) >= 0, "no bus");
    const auto callback = [](sd_bus_message *message, void *data, sd_bus_error *) {
        std::int64_t number = 0;
        std::int64_t sentAt = 0;
        const char *text = nullptr;
        require(sd_bus_message_read(message, "xxs", &number, &sentAt, &text) >= 0, "bad signal");
        arrived(*static_cast<Shared *>(data), number, sentAt);
        return 0;
    };
    require(sd_bus_match_signal(bus, nullptr, nullptr, SIGNAL_PATH, SIGNAL_INTERFACE, "Event",
                                callback, &shared) >= 0,
            "no match");
    shared.receiverReady = true;
    while (true) { // the parent ends this process
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

void sendSignals(Shared &shared, bool forLatency)
{
    sd_bus *bus = nullptr;
    require(sd_bus_open_system(&bus) >= 0, "no bus");
    const std::string text(TEXT_SIZE, 'x');
    sendAll(shared, forLatency, [&](std::int64_t number) {
        require(sd_bus_emit_signal(bus, SIGNAL_PATH, SIGNAL_INTERFACE, "Event", "xxs", number,
                                   now(), text.c_str()) >= 0,
                "sending failed");
        require(sd_bus_flush(bus) >= 0, "sending failed");
    });
    sd_bus_flush_close_unref(bus);
}

/** Figures of one measurement. */
struct Figures {
    double rate = 0;   // arrivals a second
    double median = 0; // microseconds
    double p99 = 0;    // microseconds
};

Figures figuresOf(Shared &shared)
{
    Figures figures;
    figures.rate = static_cast<double>(shared.received) * 1e9 /
                   static_cast<double>(shared.finished - shared.started);
    std::vector<std::int64_t> sorted(shared.latency.begin(),
                                     shared.latency.begin() + static_cast<long>(shared.samples));
    std::sort(sorted.begin(), sorted.end());
    figures.median = static_cast<double>(sorted[sorted.size() / 2]) / 1000;
    figures.p99 = static_cast<double>(sorted[sorted.size() * 99 / 100]) / 1000;
    return figures;
}

/** Runs a receiver and a sender as processes of their own. */
Figures measure(const std::string &self, const std::string &memory, const std::string &kind,
                const std::string &mode)
{
    unlink(memory.c_str());
    Shared &shared = *share(memory);
    ChildProcess receiver({self, "receive", kind, mode, memory});
    require(test_support::waitUntil([&] { return shared.receiverReady.load(); }),
            "the receiver did not start");
    ChildProcess sender({self, "send", kind, mode, memory});
    require(sender.waitForExit(std::chrono::seconds(30)) == 0, "the sender failed");
    require(test_support::waitUntil([&] { return shared.received >= shared.sent; }),
            "something was lost");
    require(shared.losses == 0 && shared.received == shared.sent, "something was lost");
    const Figures figures = figuresOf(shared);
    munmap(&shared, sizeof(Shared));
    return figures;
}

int compare(const std::string &self)
{
    const test_support::PrivateBus bus;
    const std::string memory = bus.folder().file("shared");
    ChildProcess daemon({EVENTD_PATH}, {"NORQ_LOG_STDERR=1"});
    require(test_support::waitUntil(
                [&] { return daemon.standardError().find("ready") != std::string::npos; }),
            "the daemon did not start");

    const Figures events = measure(self, memory, "events", "throughput");
    const Figures crowded = measure(self, memory, "events", "crowded");
    const Figures signals = measure(self, memory, "signals", "throughput");
    const Figures eventTimes = measure(self, memory, "events", "latency");
    const Figures signalTimes = measure(self, memory, "signals", "latency");
    std::printf("%zu-byte texts, one producer to one consumer, nothing lost\n", TEXT_SIZE);
    std::printf("%-34s %14s %14s %8s\n", "", "event service", "D-Bus signal", "ratio");
    const auto print = [](const char *what, double ours, double theirs) {
        std::printf("%-34s %14.1f %14.1f %8.2f\n", what, ours, theirs, ours / theirs);
    };
    print("sustained, per second", events.rate, signals.rate);
    print("the same beside 500 subscriptions", crowded.rate, signals.rate);
    print("latency at 1000/s, median, us", eventTimes.median, signalTimes.median);
    print("latency at 1000/s, 99th, us", eventTimes.p99, signalTimes.p99);
    std::printf("%s", daemon.standardError().c_str());
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        if (argc < 5) {
            return compare(argv[0]);
        }
        Shared &shared = *share(argv[4]);
        const bool events = std::strcmp(argv[2], "events") == 0;
        const bool forLatency = std::strcmp(argv[3], "latency") == 0;
        if (std::strcmp(argv[1], "receive") == 0) {
            events ? receiveEvents(shared, std::strcmp(argv[3], "crowded") == 0)
                   : receiveSignals(shared);
        } else {
            events ? sendEvents(shared, forLatency) : sendSignals(shared, forLatency);
        }
        return 0;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
