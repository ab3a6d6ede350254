/**
 * Calls the service again and again while it ends itself and comes back, and counts.
 *
 * usage: persistent_client ENDS (CALL REPLY)...
 *
 * Sends the calls in turn (service_calls.h says how they are written); each must be answered by its
 * REPLY. As long as the service cannot end yet there are a few calls a second. When its end is
 * near, bursts follow each other so closely that some are under way whenever the name is given
 * back, and that goes on until a successor is there. Ends when the service has ended ENDS times
 * since this client first got an answer, its successor has answered, and no call is open. Writes
 * lines of a word and a value:
 *
 *   calls           how many were sent
 *   ends            how often the service gave its name back
 *   behind-release  how many calls a service has answered after it had given its name back
 *   by-successor    for each successor: how many of its answers are to calls that were sent before
 *                   it was there
 *   slowest-ms      the longest time from a call to its reply
 *   failure         a call that was not answered as it must be, with what came
 */
#include "service_calls.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr uint64_t MILLISECOND = 1000;
constexpr uint64_t TICK = 10 * MILLISECOND;
/** No service ends itself sooner after it has taken its name. */
constexpr uint64_t SHORTEST_LIFE = 4000 * MILLISECOND;
constexpr int TICKS_A_QUIET_CALL = 20;
constexpr int BURST = 8;
/** A bus daemon refuses more than 128 open calls of one connection. */
constexpr std::size_t MOST_OPEN_CALLS = 64;

struct Exchange {
    std::string call;
    std::string reply;
};

class Client;

/** A call under way. */
struct OpenCall {
    Client *client;
    const Exchange *exchange;
    /** The latest service that had the name when the call was sent. */
    int generation;
    uint64_t sent;
    std::list<OpenCall>::iterator self;
};

class Client {
public:
    Client(sd_event *eventLoop, int wantedEnds, std::vector<Exchange> repeated)
        : loop(eventLoop),
          bus(clients::openBus(eventLoop)),
          ends(wantedEnds),
          exchanges(std::move(repeated))
    {
        clients::require(sd_bus_match_signal(bus.get(), nullptr, "org.freedesktop.DBus",
                                             "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                             "NameOwnerChanged", onOwnerChanged, this),
                         "match");
        clients::require(
            sd_event_add_time_relative(loop, nullptr, CLOCK_MONOTONIC, 0, 1, onTick, this),
            "timer");
    }

    void print() const
    {
        std::printf("calls %d\nends %d\nbehind-release %d\nby-successor", calls, endsSeen,
                    behindRelease);
        for (int successor = 2; successor <= generation; ++successor) {
            const auto found = bySuccessor.find(successor);
            std::printf(" %d", found == bySuccessor.end() ? 0 : found->second);
        }
        std::printf("\nslowest-ms %d\n", static_cast<int>(slowest / MILLISECOND));
        for (const std::string &failure : failures) {
            std::printf("failure %s\n", failure.c_str());
        }
    }

private:
    static int onTick(sd_event_source *source, uint64_t /*time*/, void *data)
    {
        auto &client = *static_cast<Client *>(data);
        client.tick();
        clients::require(sd_event_source_set_time_relative(source, TICK), "timer");
        return sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
    }

    static int onOwnerChanged(sd_bus_message *signal, void *data, sd_bus_error * /*error*/)
    {
        const char *name = nullptr;
        const char *before = nullptr;
        const char *now = nullptr;
        clients::require(sd_bus_message_read(signal, "sss", &name, &before, &now), "signal");
        if (std::string(name) == clients::SERVICE_NAME) {
            static_cast<Client *>(data)->noteOwner(now);
        }
        return 0;
    }

    static int onReply(sd_bus_message *reply, void *data, sd_bus_error * /*error*/)
    {
        const auto &call = *static_cast<OpenCall *>(data);
        call.client->noteReply(call, reply);
        return 1;
    }

    [[nodiscard]] uint64_t now() const
    {
        uint64_t time = 0;
        clients::require(sd_event_now(loop, CLOCK_MONOTONIC, &time), "time");
        return time;
    }

    [[nodiscard]] bool isDone() const { return endsSeen >= ends && hasOwner && answeredByLatest; }

    void tick()
    {
        if (isDone()) {
            endWhenAnswered();
            return;
        }
        const bool isEndNear = !hasOwner || now() - ownedSince >= SHORTEST_LIFE;
        const bool isQuietTurn = ++ticks % TICKS_A_QUIET_CALL == 0 || calls == 0;
        const int burst = isEndNear ? BURST : static_cast<int>(isQuietTurn);
        for (int sent = 0; sent < burst && openCalls.size() < MOST_OPEN_CALLS; ++sent) {
            send();
        }
    }

    void send()
    {
        const Exchange &exchange = exchanges[static_cast<std::size_t>(calls) % exchanges.size()];
        const clients::Message call = clients::newCall(bus.get(), exchange.call);
        openCalls.push_front({this, &exchange, generation, now(), {}});
        openCalls.front().self = openCalls.begin();
        clients::require(
            sd_bus_call_async(bus.get(), nullptr, call.get(), onReply, &openCalls.front(), 0),
            "call");
        ++calls;
    }

    void noteOwner(const std::string &uniqueName)
    {
        if (!uniqueName.empty()) {
            generationOf(uniqueName);
            return;
        }
        hasOwner = false;
        // Before the first answer it is not known whose name that was.
        endsSeen += static_cast<int>(generation > 0);
    }

    int generationOf(const std::string &uniqueName)
    {
        const auto [found, isNew] = generations.try_emplace(uniqueName, generation + 1);
        if (isNew) {
            ++generation;
            hasOwner = true;
            answeredByLatest = false;
            ownedSince = now();
        }
        return found->second;
    }

    void noteReply(const OpenCall &call, sd_bus_message *reply)
    {
        slowest = std::max(slowest, now() - call.sent);
        const std::string came = clients::describe(reply);
        if (came != call.exchange->reply) {
            failures.push_back(call.exchange->call + ": " + came);
        } else {
            noteSender(call, sd_bus_message_get_sender(reply));
        }
        openCalls.erase(call.self);
    }

    void noteSender(const OpenCall &call, const char *uniqueName)
    {
        const int sender = generationOf(uniqueName);
        if (sender < generation || !hasOwner) {
            ++behindRelease;
        }
        if (call.generation > 0 && sender > call.generation) {
            ++bySuccessor[sender];
        }
        answeredByLatest = answeredByLatest || sender == generation;
    }

    void endWhenAnswered()
    {
        if (openCalls.empty()) {
            clients::require(sd_event_exit(loop, 0), "exit");
        }
    }

    sd_event *loop;
    clients::Bus bus;
    int ends;
    std::vector<Exchange> exchanges;
    std::list<OpenCall> openCalls;

    /** The services so far by their unique names, from 1 in the order in which they came. */
    std::map<std::string, int> generations;
    int generation = 0;
    bool hasOwner = false;
    bool answeredByLatest = false;
    uint64_t ownedSince = 0;

    int ticks = 0;
    int calls = 0;
    int endsSeen = 0;
    int behindRelease = 0;
    std::map<int, int> bySuccessor;
    uint64_t slowest = 0;
    std::vector<std::string> failures;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4 || argc % 2 != 0) {
        std::fprintf(stderr, "usage: %s ENDS (CALL REPLY)...\n", argv[0]);
        return 2;
    }
    std::vector<Exchange> exchanges;
    for (int index = 2; index < argc; index += 2) {
        exchanges.push_back({argv[index], argv[index + 1]});
    }
    const clients::Event loop = clients::openEventLoop();
    Client client(loop.get(), std::atoi(argv[1]), std::move(exchanges));
    clients::require(sd_event_loop(loop.get()), "event loop");
    client.print();
    return 0;
}
