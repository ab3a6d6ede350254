/** All clients with their declarations and subscriptions; routes events between them. */
#pragma once

#include "event/core/frames.h"
#include "event/core/status.h"
#include "event/daemon/client.h"
#include "event/daemon/rate_limit.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace norq::event {

/** What became of an event. */
enum class Routing {
    DONE,
    UNKNOWN,  /**< its declaration was withdrawn, or never made */
    MALFORMED /**< it is none of its declaration, or exceeds a limit */
};

/** Why a request was refused. */
enum class Refusal { NONE, INVALID, LIMIT, UNKNOWN };

/** Outcome of a request with a text for people. */
struct Answer {
    Refusal refusal = Refusal::NONE;
    std::string text;
};

/** The heart of the service; knows neither bus nor sockets. One thread. */
class Registry {
public:
    /** Whether there is room for one more client. */
    [[nodiscard]] bool hasRoomForClient() const;
    /** Takes a client into account; the caller owns it and removes it before its end. */
    void add(Client &client);
    /** Withdraws all that the client declared and subscribed. */
    void remove(Client &client);

    Answer declare(Client &client, std::uint32_t id, Declaration declaration);
    Answer undeclare(Client &client, std::uint32_t id);
    Answer subscribe(Client &client, std::uint32_t id, Expression expression);
    Answer unsubscribe(Client &client, std::uint32_t id);

    /** Passes an event on to all matching subscriptions; flush() writes it. */
    Routing route(Client &from, const EventFrame &event);
    /** Lets every client that got something write it. */
    void flush();

    [[nodiscard]] const std::vector<Client *> &clients() const { return all; }

private:
    Answer checkRoom(const Client &client, std::uint32_t id, std::size_t clientCount,
                     std::size_t total, std::size_t size) const;
    void withdraw(Client &client, DeclarationRecord &record);
    const MatchTable &matchesOf(DeclarationRecord &record);
    void forgetMatches();
    void keep(Client &client, DeclarationRecord &record, SharedBody body);
    void deliver(Client &client, const DeclarationRecord &record, const SharedBody &body,
                 std::uint8_t flags);
    void giveKeptValues(Subscription &subscription);
    void giveKeptValue(Subscription &subscription, const DeclarationRecord &record);
    void boundBacklogs();

    std::vector<Client *> all;
    std::vector<Client *> toFlush;
    std::vector<Client *> reached;            // by the event that is being routed
    std::vector<std::string_view> openValues; // of that event
    std::size_t declarationCount = 0;
    std::size_t subscriptionCount = 0;
    std::size_t texts = 0;
    std::size_t kept = 0;
    std::size_t matches = 0;             // in all tables
    std::uint64_t subscriptionEpoch = 1; // changes with every subscription
    std::uint64_t lastSerial = 0;
    RateLimit keepLog;
};

} // namespace norq::event
