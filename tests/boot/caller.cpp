/**
 * A client of the service, on one connection to the system bus.
 *
 *   caller often SECONDS  calls all the time; prints how many calls were answered, how many were
 *                         not, by how many services, and the milliseconds of the slowest
 *   caller add TOPIC      sends a call that changes nothing and one that makes an item of TOPIC;
 *                         prints "sent" once the bus has both, and then the second's result
 *
 * Exit status: 0, or 1 when the bus or an answer is not as it should be.
 */
#include <systemd/sd-bus.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t LONGEST_CALL_MICROSECONDS = 60'000'000;

struct Bus {
    sd_bus *bus = nullptr;
    Bus()
    {
        if (sd_bus_open_system(&bus) < 0) {
            std::fputs("no system bus\n", stderr);
            std::exit(EXIT_FAILURE);
        }
    }
    ~Bus() { sd_bus_flush_close_unref(bus); }
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;
};

struct MessageDeleter {
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

Message newCall(sd_bus *bus, const char *method)
{
    sd_bus_message *message = nullptr;
    sd_bus_message_new_method_call(bus, &message, "com.norq.Tovrel1", "/com/norq/Tovrel1",
                                   "com.norq.Tovrel1", method);
    return Message(message);
}

/** The reply to a call; nothing, with the reason on standard error, when there is none. */
Message call(sd_bus *bus, sd_bus_message *message)
{
    sd_bus_error error{};
    sd_bus_message *reply = nullptr;
    if (sd_bus_call(bus, message, LONGEST_CALL_MICROSECONDS, &error, &reply) < 0) {
        std::fprintf(stderr, "%s: %s\n", error.name, error.message);
    }
    sd_bus_error_free(&error);
    return Message(reply);
}

int callOften(std::chrono::seconds duration)
{
    const Bus connection;
    std::set<std::string> services;
    long answered = 0;
    long failed = 0;
    Clock::duration slowest{};
    for (const auto end = Clock::now() + duration; Clock::now() < end;) {
        const auto start = Clock::now();
        const Message reply =
            call(connection.bus, newCall(connection.bus, "GetMQTTToEventConfig").get());
        slowest = std::max(slowest, Clock::now() - start);
        if (reply) {
            services.insert(sd_bus_message_get_sender(reply.get()));
        }
        ++(reply ? answered : failed);
    }
    std::printf(
        "%ld %ld %zu %ld\n", answered, failed, services.size(),
        static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count()));
    return EXIT_SUCCESS;
}

int printResult(sd_bus_message *reply, void *result, sd_bus_error * /*error*/)
{
    std::int32_t status = -1;
    const sd_bus_error *const error = sd_bus_message_get_error(reply);
    if (error != nullptr) {
        std::printf("%s: %s\n", error->name, error->message);
    } else if (sd_bus_message_read(reply, "i", &status) > 0) {
        std::printf("%d\n", status);
    }
    *static_cast<bool *>(result) = true;
    return 1;
}

int add(const char *topic)
{
    const Bus connection;
    sd_bus *const bus = connection.bus;
    sd_bus_send(bus, newCall(bus, "GetMQTTToEventConfig").get(), nullptr);
    const Message change = newCall(bus, "SetMQTTToEventConfig");
    sd_bus_message_append(change.get(), "a(sbib)", 1, topic, 0, 1, 0);
    bool done = false;
    sd_bus_call_async(bus, nullptr, change.get(), printResult, &done, LONGEST_CALL_MICROSECONDS);

    // What is sent on one connection arrives in order: the bus has passed on the calls before this.
    sd_bus_message *question = nullptr;
    sd_bus_message_new_method_call(bus, &question, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                   "org.freedesktop.DBus", "GetId");
    if (!call(bus, Message(question).get())) {
        return EXIT_FAILURE;
    }
    std::puts("sent");
    std::fflush(stdout);
    while (!done) {
        const int result = sd_bus_process(bus, nullptr);
        if (result < 0 || (result == 0 && sd_bus_wait(bus, LONGEST_CALL_MICROSECONDS) < 0)) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view what = argc == 3 ? argv[1] : "";
    if (what == "often") {
        return callOften(std::chrono::seconds(std::atol(argv[2])));
    }
    if (what == "add") {
        return add(argv[2]);
    }
    std::fputs("usage: caller often SECONDS | caller add TOPIC\n", stderr);
    return EXIT_FAILURE;
}
