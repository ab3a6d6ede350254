/**
 * Calls the service as it is told by lines, and tells what became of each call.
 *
 * Reads calls from standard input, one a line (service_calls.h says how), and sends each at once,
 * whether or not earlier ones have been answered. Writes a line for each reply as it comes: sd-bus
 * keeps the order of one connection, and so do the service and the bus daemon each for itself. Ends
 * when the input has ended and every call has been answered.
 */
#include "service_calls.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

/** In microseconds. More than twice what the service itself waits for a neighbour. */
constexpr std::uint64_t REPLY_LIMIT = 60'000'000;

class Client {
public:
    explicit Client(sd_event *eventLoop) : loop(eventLoop), bus(clients::openBus(eventLoop))
    {
        clients::require(
            sd_event_add_io(loop, nullptr, STDIN_FILENO, EPOLLIN | EPOLLHUP, onInput, this),
            "standard input");
    }

private:
    static int onInput(sd_event_source *source, int descriptor, uint32_t /*events*/, void *data)
    {
        auto &client = *static_cast<Client *>(data);
        std::array<char, 65536> buffer{};
        const ssize_t length = read(descriptor, buffer.data(), buffer.size());
        if (length > 0) {
            client.take({buffer.data(), static_cast<std::size_t>(length)});
            return 0;
        }
        client.hasInputEnded = true;
        client.endWhenDone();
        return sd_event_source_set_enabled(source, SD_EVENT_OFF);
    }

    static int onReply(sd_bus_message *reply, void *data, sd_bus_error * /*error*/)
    {
        auto &client = *static_cast<Client *>(data);
        std::puts(clients::describe(reply).c_str());
        std::fflush(stdout);
        --client.unanswered;
        client.endWhenDone();
        return 1;
    }

    void take(const std::string &input)
    {
        unread += input;
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = unread.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            send(unread.substr(begin, end - begin));
        }
        unread.erase(0, begin);
    }

    void send(const std::string &line)
    {
        const clients::Message call = clients::newCall(bus.get(), line);
        clients::require(
            sd_bus_call_async(bus.get(), nullptr, call.get(), onReply, this, REPLY_LIMIT), "call");
        ++unanswered;
    }

    void endWhenDone()
    {
        if (hasInputEnded && unanswered == 0) {
            clients::require(sd_event_exit(loop, 0), "exit");
        }
    }

    sd_event *loop;
    clients::Bus bus;
    std::string unread;
    bool hasInputEnded = false;
    int unanswered = 0;
};

} // namespace

int main()
{
    const clients::Event loop = clients::openEventLoop();
    const Client client(loop.get());
    return clients::require(sd_event_loop(loop.get()), "event loop");
}
