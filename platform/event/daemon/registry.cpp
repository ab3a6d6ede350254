#include "event/daemon/registry.h"

#include "event/core/log.h"
#include "event/daemon/limits.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace norq::event {
namespace {

constexpr std::uint32_t MAX_ID = 0x7fffffff;

Answer unknown(const char *what)
{
    return {Refusal::UNKNOWN, std::string("there is no such ") + what};
}

} // namespace

bool Registry::hasRoomForClient() const
{
    return all.size() < MAX_CLIENTS;
}

void Registry::add(Client &client)
{
    all.push_back(&client);
}

void Registry::remove(Client &client)
{
    for (auto &[id, record] : client.declarations) {
        withdraw(client, record);
    }
    client.declarations.clear();
    subscriptionCount -= client.subscriptions.size();
    client.subscriptions.clear();
    ++subscriptionEpoch;
    texts -= client.texts;
    std::erase(all, &client);
    std::erase(toFlush, &client);
}

Answer Registry::checkRoom(const Client &client, std::uint32_t id, std::size_t clientCount,
                           std::size_t total, std::size_t size) const
{
    if (id > MAX_ID) {
        return {Refusal::INVALID, "the id is too large"};
    }
    if (clientCount >= EVENT_MAX_IDS || client.texts + size > MAX_CLIENT_TEXTS) {
        return {Refusal::LIMIT, "the client holds as much as one may"};
    }
    if (total >= MAX_DECLARATIONS || texts + size > MAX_TEXTS) {
        return {Refusal::LIMIT, "all clients together hold as much as they may"};
    }
    return {};
}

Answer Registry::declare(Client &client, std::uint32_t id, Declaration declaration)
{
    if (const Status complete = declaration.checkComplete(); !complete) {
        return {Refusal::INVALID, complete.text()};
    }
    const std::size_t size = declaration.memorySize();
    Answer room = checkRoom(client, id, client.declarations.size(), declarationCount, size);
    if (room.refusal != Refusal::NONE) {
        return room;
    }
    if (client.declarations.contains(id)) {
        return {Refusal::INVALID, "the id is declared already"};
    }
    auto published =
        std::make_shared<const Published>(Published{++lastSerial, std::move(declaration)});
    client.declarations[id].published = std::move(published);
    ++declarationCount;
    client.texts += size;
    texts += size;
    return {};
}

Answer Registry::undeclare(Client &client, std::uint32_t id)
{
    const auto found = client.declarations.find(id);
    if (found == client.declarations.end()) {
        return unknown("declaration");
    }
    const std::size_t size = found->second.published->declaration.memorySize();
    withdraw(client, found->second);
    client.declarations.erase(found);
    client.texts -= size;
    texts -= size;
    return {};
}

void Registry::withdraw(Client &client, DeclarationRecord &record)
{
    matches -= record.matches.size();
    keep(client, record, nullptr);
    --declarationCount;
}

Answer Registry::subscribe(Client &client, std::uint32_t id, Expression expression)
{
    static_assert(MAX_SUBSCRIPTIONS == MAX_DECLARATIONS, "one check of the room serves both");
    const std::size_t size = expression.memorySize();
    Answer room = checkRoom(client, id, client.subscriptions.size(), subscriptionCount, size);
    if (room.refusal != Refusal::NONE) {
        return room;
    }
    const auto [added, isNew] =
        client.subscriptions.try_emplace(id, Subscription{client, id, std::move(expression)});
    if (!isNew) {
        return {Refusal::INVALID, "the id is subscribed already"};
    }
    ++subscriptionCount;
    client.texts += size;
    texts += size;
    ++subscriptionEpoch;
    giveKeptValues(added->second);
    return {};
}

Answer Registry::unsubscribe(Client &client, std::uint32_t id)
{
    const auto found = client.subscriptions.find(id);
    if (found == client.subscriptions.end()) {
        return unknown("subscription");
    }
    const std::size_t size = found->second.expression.memorySize();
    client.subscriptions.erase(found);
    --subscriptionCount;
    client.texts -= size;
    texts -= size;
    ++subscriptionEpoch;
    return {};
}

Routing Registry::route(Client &from, const EventFrame &event)
{
    const auto found = from.declarations.find(event.declaration);
    if (found == from.declarations.end()) {
        return Routing::UNKNOWN;
    }
    DeclarationRecord &record = found->second;
    const Declaration &declaration = record.published->declaration;
    const bool keptBefore = (event.flags & FLAG_KEPT) != 0;
    if (!scanBody(event.body, declaration, openValues) ||
        (keptBefore && !declaration.isProperty())) {
        return Routing::MALFORMED;
    }
    matchesOf(record).match(openValues, [this](const Subscription &subscription) {
        Client &client = subscription.client;
        if (client.matched.empty()) {
            reached.push_back(&client);
        }
        client.matched.push_back(subscription.id);
    });
    if (reached.empty() && !declaration.isProperty()) {
        return Routing::DONE;
    }
    const auto body = std::make_shared<const std::string>(event.body);
    if (declaration.isProperty()) {
        keep(from, record, body);
    }
    for (Client *client : reached) {
        deliver(*client, record, body, event.flags);
    }
    reached.clear();
    return Routing::DONE;
}

/** Puts the event for the client's matched subscriptions into its queue. */
void Registry::deliver(Client &client, const DeclarationRecord &record, const SharedBody &body,
                       std::uint8_t flags)
{
    client.queue.push({record.published, body, flags, std::exchange(client.matched, {})});
    if (!std::exchange(client.needsFlush, true)) {
        toFlush.push_back(&client);
    }
}

void Registry::flush()
{
    bool someBlocked = false;
    for (Client *client : toFlush) {
        client->needsFlush = false;
        client->flush();
        someBlocked = someBlocked || client->queue.backlogBytes() > 0;
    }
    if (someBlocked) {
        boundBacklogs();
    }
    for (Client *client : std::exchange(toFlush, {})) {
        if (client->queue.takeDropNotice()) {
            norq_event_log(G_LOG_LEVEL_WARNING,
                           "Consumer '%s' does not keep up, dropping its oldest events",
                           client->name.c_str());
        }
    }
}

/** Keeps the sum of all backlogs within its bound at the expense of the longest. */
void Registry::boundBacklogs()
{
    std::size_t sum = 0;
    for (const Client *client : all) {
        sum += client->queue.backlogBytes();
    }
    while (sum > MAX_BACKLOGS) {
        Client *longest = *std::max_element(all.begin(), all.end(), [](Client *a, Client *b) {
            return a->queue.backlogBytes() < b->queue.backlogBytes();
        });
        const std::size_t before = longest->queue.backlogBytes();
        longest->queue.dropOldest();
        if (longest->queue.backlogBytes() == before) {
            return; // one event each is left
        }
        sum -= before - longest->queue.backlogBytes();
    }
}

const MatchTable &Registry::matchesOf(DeclarationRecord &record)
{
    if (record.matchesEpoch == subscriptionEpoch) {
        return record.matches;
    }
    matches -= record.matches.size();
    record.matches.clear();
    if (matches > MAX_MATCHES) {
        forgetMatches();
    }
    for (Client *client : all) {
        for (auto &[id, subscription] : client->subscriptions) {
            record.matches.add(subscription, subscription.expression,
                               record.published->declaration);
        }
    }
    matches += record.matches.size();
    record.matchesEpoch = subscriptionEpoch;
    return record.matches;
}

void Registry::forgetMatches()
{
    for (Client *client : all) {
        for (auto &[id, record] : client->declarations) {
            record.matches.clear();
            record.matchesEpoch = 0;
        }
    }
    matches = 0;
}

/** Replaces the kept value of a declaration; without a body it ends. */
void Registry::keep(Client &client, DeclarationRecord &record, SharedBody body)
{
    const std::size_t former = record.kept ? record.kept->size() : 0;
    std::size_t size = body ? body->size() : 0;
    if (client.kept - former + size > MAX_CLIENT_KEPT || kept - former + size > MAX_KEPT) {
        // better no value for new subscribers than an old one
        body.reset();
        size = 0;
        if (keepLog.admits()) {
            norq_event_log(G_LOG_LEVEL_WARNING,
                           "Client '%s' has too many large properties, a value is not kept",
                           client.name.c_str());
        }
    }
    record.kept = std::move(body);
    client.kept = client.kept - former + size;
    kept = kept - former + size;
}

void Registry::giveKeptValues(Subscription &subscription)
{
    for (Client *owner : all) {
        for (const auto &[id, record] : owner->declarations) {
            giveKeptValue(subscription, record);
        }
    }
}

void Registry::giveKeptValue(Subscription &subscription, const DeclarationRecord &record)
{
    const Declaration &declaration = record.published->declaration;
    if (!record.kept || !scanBody(*record.kept, declaration, openValues)) {
        return;
    }
    MatchTable only;
    only.add(subscription, subscription.expression, declaration);
    only.match(openValues, [this, &record](const Subscription &match) {
        match.client.matched.push_back(match.id);
        deliver(match.client, record, record.kept, FLAG_KEPT);
    });
}

} // namespace norq::event
