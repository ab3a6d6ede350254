#include "event/client/consumer.h"

#include "event/client/deferred.h"
#include "event/client/event_handle.h"
#include "event/core/log.h"

#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <utility>

namespace norq::event {
namespace {

/** Longest wait of a call for the service. */
constexpr std::chrono::milliseconds CALL_TIME{2000};

Deadline deadline()
{
    return std::chrono::steady_clock::now() + CALL_TIME;
}

} // namespace

Consumer::Consumer(const std::string &name) : link(name, *this)
{
    link.start();
    link.settledState(deadline());
}

Consumer::~Consumer()
{
    {
        const std::lock_guard guard(mutex);
        closing = true;
    }
    link.stop();
}

Status Consumer::subscribe(const Expression &expression, event_callback_t callback, void *userData,
                           int &id)
{
    {
        auto copy = std::make_shared<const Expression>(expression);
        const std::lock_guard guard(mutex);
        if (subscriptions.size() >= EVENT_MAX_IDS || nextId == std::numeric_limits<int>::max()) {
            return Status::failure(EVENT_ERROR_INVALID, "there are too many subscriptions");
        }
        id = nextId++;
        subscriptions.emplace(id, Subscription{std::move(copy), callback, userData, false});
    }
    std::optional<CallResult> result;
    if (link.isOwnThread()) {
        result = registerNow(id);
    } else {
        Deferred<CallResult> registered;
        link.post([this, id, registered]() mutable { registered.set(registerNow(id)); });
        if (link.settledState(deadline()) == LinkState::AWAY) {
            return {}; // to be registered as soon as the service is there
        }
        result = registered.waitUntil(deadline());
    }
    if (result && result->outcome == CallOutcome::REFUSED) {
        const std::lock_guard guard(mutex);
        subscriptions.erase(id);
        return Status::failure(EVENT_ERROR_INVALID, result->text);
    }
    return {};
}

CallResult Consumer::registerNow(int id)
{
    ServiceCalls *calls = link.calls();
    if (calls == nullptr) {
        return {};
    }
    CallResult result = registerWith(*calls, id);
    if (result.outcome == CallOutcome::LOST) {
        link.lose("it did not take a subscription");
    }
    return result;
}

/** Subscribes with the service, unless the subscription is gone or known already. */
CallResult Consumer::registerWith(ServiceCalls &calls, int id)
{
    std::shared_ptr<const Expression> expression;
    {
        const std::lock_guard guard(mutex);
        const auto found = subscriptions.find(id);
        if (found == subscriptions.end() || found->second.registered) {
            return {CallOutcome::DONE, {}};
        }
        expression = found->second.expression;
    }
    CallResult result = calls.subscribe(static_cast<std::uint32_t>(id), *expression);
    if (result.outcome == CallOutcome::DONE) {
        const std::lock_guard guard(mutex);
        if (const auto found = subscriptions.find(id); found != subscriptions.end()) {
            found->second.registered = true;
        }
    }
    return result;
}

bool Consumer::unsubscribe(int id)
{
    {
        std::unique_lock guard(mutex);
        if (subscriptions.erase(id) == 0) {
            return false;
        }
        if (!link.isOwnThread()) {
            callbackEnded.wait(guard, [&] { return running != id; });
        }
    }
    // what the service sends until it knows is for nobody
    link.post([this, id] { endAtService(id); });
    return true;
}

void Consumer::endAtService(int id)
{
    ServiceCalls *calls = link.calls();
    if (calls != nullptr &&
        calls->unsubscribe(static_cast<std::uint32_t>(id)).outcome == CallOutcome::LOST) {
        link.lose("it did not take the end of a subscription");
    }
}

bool Consumer::onOpened(ServiceCalls &calls, int /*socket*/)
{
    std::vector<int> ids;
    {
        const std::lock_guard guard(mutex);
        for (const auto &[id, subscription] : subscriptions) {
            ids.push_back(id);
        }
    }
    for (const int id : ids) {
        const CallResult result = registerWith(calls, id);
        if (result.outcome == CallOutcome::LOST) {
            return false;
        }
        if (result.outcome == CallOutcome::REFUSED) {
            norq_event_log(LOG_ERROR_LEVEL, "The event service refuses subscription %d: %s", id,
                           result.text.c_str());
        }
    }
    return true;
}

void Consumer::onClosed()
{
    received.clear();
    slots.clear();
    const std::lock_guard guard(mutex);
    for (auto &[id, subscription] : subscriptions) {
        subscription.registered = false;
    }
}

bool Consumer::onReadable(int socket)
{
    const auto room = received.room();
    const ssize_t count = recv(socket, room.data(), room.size(), MSG_DONTWAIT);
    if (count <= 0) {
        return count < 0 && (errno == EAGAIN || errno == EINTR);
    }
    received.filled(static_cast<std::size_t>(count));
    while (const auto frame = received.next()) {
        if (!take(*frame)) {
            return false;
        }
    }
    if (received.malformed()) {
        return false;
    }
    received.releaseIfEmpty();
    return true;
}

bool Consumer::take(std::string_view frame)
{
    switch (static_cast<FrameKind>(kindOf(frame))) {
    case FrameKind::DELIVERY:
        return deliver(frame);
    case FrameKind::DEFINE:
        return define(frame);
    case FrameKind::FORGET:
        slots.clear();
        return true;
    case FrameKind::EVENT:
        break;
    }
    return false;
}

bool Consumer::define(std::string_view frame)
{
    auto definition = readDefine(frame);
    if (!definition) {
        return false;
    }
    if (definition->slot >= slots.size()) {
        slots.resize(definition->slot + 1);
    }
    slots[definition->slot] = std::move(definition->declaration);
    return true;
}

bool Consumer::deliver(std::string_view frame)
{
    const auto delivery = readDelivery(frame);
    if (!delivery || delivery->slot >= slots.size() || !slots[delivery->slot]) {
        return false;
    }
    auto content = readBody(delivery->body, slots[delivery->slot]);
    if (!content) {
        return false;
    }
    content->initial = (delivery->flags & FLAG_KEPT) != 0;
    const auto shared = std::make_shared<EventContent>(std::move(*content));
    for (const std::uint32_t id : delivery->subscriptions) {
        deliverTo(static_cast<int>(id), shared);
    }
    return true;
}

void Consumer::deliverTo(int id, const std::shared_ptr<EventContent> &content)
{
    auto event = std::make_unique<::event>();
    event->content = content;
    if (const auto subscription = enter(id)) {
        subscription->callback(event.release(), subscription->userData);
        leave();
    }
}

/** Marks the callback of a subscription as under way; nothing when it must not run. */
std::optional<Consumer::Subscription> Consumer::enter(int id)
{
    const std::lock_guard guard(mutex);
    const auto found = subscriptions.find(id);
    if (closing || found == subscriptions.end()) {
        return std::nullopt;
    }
    running = id;
    return found->second;
}

void Consumer::leave()
{
    {
        const std::lock_guard guard(mutex);
        running.reset();
    }
    callbackEnded.notify_all();
}

} // namespace norq::event
