#include "event/client/producer.h"

#include "event/client/deferred.h"
#include "event/core/frames.h"
#include "event/core/log.h"

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <limits>
#include <utility>
#include <vector>

namespace norq::event {
namespace {

/** Longest wait for the service to take the kept values after its return. */
constexpr std::chrono::seconds REPLAY_TIME{5};

std::uint64_t newIdentity()
{
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

Status unknownId(int id)
{
    return Status::failure(EVENT_ERROR_UNKNOWN_ID,
                           "declaration " + std::to_string(id) + " is not this producer's");
}

Status unavailable(const char *why)
{
    return Status::failure(EVENT_ERROR_UNAVAILABLE, why);
}

} // namespace

Producer::Producer(const std::string &name, void *userData, std::chrono::milliseconds longestWait)
    : pointer(userData), timeout(longestWait), identity(newIdentity()), link(name, *this)
{
    link.start();
    link.settledState(deadline());
}

Producer::~Producer()
{
    if (writing.lockUntil(deadline())) {
        writer.writeRest(deadline());
        writing.unlock();
    }
    link.stop();
}

Deadline Producer::deadline() const
{
    return std::chrono::steady_clock::now() + timeout;
}

Status Producer::declare(SharedDeclaration declaration, int &id)
{
    if (Status complete = declaration->checkComplete(); !complete) {
        return complete;
    }
    {
        const std::lock_guard guard(mutex);
        if (entries.size() >= EVENT_MAX_IDS || nextId == std::numeric_limits<int>::max()) {
            return Status::failure(EVENT_ERROR_INVALID, "there are too many declarations");
        }
        id = nextId++;
        entries.emplace(id, Entry{std::move(declaration), false, {}});
    }
    Deferred<CallResult> registered;
    link.post([this, id, registered]() mutable { registered.set(registerNow(id)); });
    if (link.settledState(deadline()) == LinkState::AWAY) {
        return {}; // to be registered as soon as the service is there
    }
    const auto result = registered.waitUntil(deadline());
    if (result && result->outcome == CallOutcome::REFUSED) {
        const std::lock_guard guard(mutex);
        entries.erase(id);
        return Status::failure(EVENT_ERROR_INVALID, result->text);
    }
    return {};
}

CallResult Producer::registerNow(int id)
{
    ServiceCalls *calls = link.calls();
    if (calls == nullptr) {
        return {};
    }
    CallResult result = registerWith(*calls, id);
    if (result.outcome == CallOutcome::LOST) {
        link.lose("it did not take a declaration");
    }
    return result;
}

/** Declares an entry with the service, unless it is gone or known already. */
CallResult Producer::registerWith(ServiceCalls &calls, int id)
{
    SharedDeclaration declaration;
    {
        const std::lock_guard guard(mutex);
        const auto found = entries.find(id);
        if (found == entries.end() || found->second.registered) {
            return {CallOutcome::DONE, {}};
        }
        declaration = found->second.declaration;
    }
    CallResult result = calls.declare(static_cast<std::uint32_t>(id), *declaration);
    if (result.outcome != CallOutcome::DONE) {
        return result;
    }
    const bool kept = handOverLastValue(id);
    if (!isDeclared(id)) { // it was withdrawn meanwhile
        return calls.undeclare(static_cast<std::uint32_t>(id));
    }
    return {kept ? CallOutcome::DONE : CallOutcome::LOST, {}};
}

/**
 * Hands a kept value to a service that has just got to know the declaration, and lets events of it
 * be sent from then on, so that the kept value cannot overtake a newer one.
 */
bool Producer::handOverLastValue(int id)
{
    const std::lock_guard turn(writing);
    std::string kept;
    {
        const std::lock_guard guard(mutex);
        if (const auto found = entries.find(id); found != entries.end()) {
            kept = found->second.lastValue;
        }
    }
    const auto end = std::chrono::steady_clock::now() + REPLAY_TIME;
    if (!kept.empty() && writer.write(kept, end) != EventWriter::Result::TAKEN) {
        return false;
    }
    finishRest();
    const std::lock_guard guard(mutex);
    if (const auto found = entries.find(id); found != entries.end()) {
        found->second.registered = true;
    }
    return true;
}

bool Producer::isDeclared(int id)
{
    const std::lock_guard guard(mutex);
    return entries.contains(id);
}

Status Producer::undeclare(int id)
{
    bool registered = false;
    {
        const std::lock_guard guard(mutex);
        const auto found = entries.find(id);
        if (found == entries.end()) {
            return unknownId(id);
        }
        registered = found->second.registered;
        entries.erase(found);
    }
    if (!registered) {
        return {};
    }
    Deferred<bool> done;
    link.post([this, id, done]() mutable {
        ServiceCalls *calls = link.calls();
        if (calls != nullptr &&
            calls->undeclare(static_cast<std::uint32_t>(id)).outcome == CallOutcome::LOST) {
            link.lose("it did not take the end of a declaration");
        }
        done.set(true);
    });
    done.waitUntil(deadline());
    return {};
}

Status Producer::prepare(int id, std::int64_t time, std::unique_ptr<::event> &prepared)
{
    auto content = std::make_shared<EventContent>();
    {
        const std::lock_guard guard(mutex);
        const auto found = entries.find(id);
        if (found == entries.end()) {
            return unknownId(id);
        }
        content->declaration = found->second.declaration;
    }
    content->time = time != 0 ? time : g_get_real_time();
    content->open.resize(content->declaration->openKeys().size());
    prepared = std::make_unique<::event>();
    prepared->content = std::move(content);
    prepared->producer = identity;
    prepared->declarationId = id;
    return {};
}

Status Producer::send(const ::event &prepared)
{
    const Deadline end = deadline();
    if (prepared.producer != identity) {
        return unknownId(prepared.declarationId);
    }
    if (!isDeclared(prepared.declarationId)) {
        return unknownId(prepared.declarationId);
    }
    if (Status sendable = checkSendable(*prepared.content); !sendable) {
        return sendable;
    }
    if (link.settledState(end) != LinkState::READY) {
        return unavailable("the event service is away");
    }
    if (!writing.lockUntil(end)) {
        return unavailable("the event service did not take the events before this one in time");
    }
    const std::unique_lock turn(writing, std::adopt_lock);
    Status sent = sendFrame(prepared.declarationId, *prepared.content, end);
    finishRest();
    return sent;
}

/** Writes an event and remembers it as the last value of its property. `writing` is held. */
Status Producer::sendFrame(int id, const EventContent &content, Deadline end)
{
    {
        const std::lock_guard guard(mutex);
        const auto found = entries.find(id);
        if (found == entries.end()) {
            return unknownId(id);
        }
        if (!found->second.registered) {
            return unavailable("the event service does not know the declaration yet");
        }
    }
    const auto declaration = static_cast<std::uint32_t>(id);
    switch (writer.write(eventFrame(declaration, 0, content), end)) {
    case EventWriter::Result::TIMED_OUT:
        return unavailable("the event service did not take the event in time");
    case EventWriter::Result::CLOSED:
        return unavailable("the event service is away");
    case EventWriter::Result::TAKEN:
        break;
    }
    if (content.declaration->isProperty()) {
        std::string kept = eventFrame(declaration, FLAG_KEPT, content);
        const std::lock_guard guard(mutex);
        if (const auto found = entries.find(id); found != entries.end()) {
            found->second.lastValue = std::move(kept);
        }
    }
    return {};
}

/** Lets the thread write what the kernel did not take of the last frame. `writing` is held. */
void Producer::finishRest()
{
    if (writer.hasRest()) {
        link.post([this] { link.watchWritable(true); });
    }
}

bool Producer::onOpened(ServiceCalls &calls, int socket)
{
    {
        const std::lock_guard turn(writing);
        writer.attach(socket);
    }
    std::vector<int> ids;
    {
        const std::lock_guard guard(mutex);
        for (const auto &[id, entry] : entries) {
            ids.push_back(id);
        }
    }
    for (const int id : ids) {
        const CallResult result = registerWith(calls, id);
        if (result.outcome == CallOutcome::LOST) {
            return false;
        }
        if (result.outcome == CallOutcome::REFUSED) {
            norq_event_log(LOG_ERROR_LEVEL, "The event service refuses declaration %d: %s", id,
                           result.text.c_str());
        }
    }
    return true;
}

bool Producer::onReadable(int socket)
{
    // nothing is sent to a client without subscriptions: this tells the end of the service
    std::array<char, 256> unexpected{};
    const ssize_t count = recv(socket, unexpected.data(), unexpected.size(), MSG_DONTWAIT);
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

void Producer::onWritable()
{
    link.watchWritable(false);
    const std::unique_lock turn(writing, std::try_to_lock);
    if (turn) { // otherwise whoever writes now writes the rest first
        writer.writeRest(std::chrono::steady_clock::now());
        link.watchWritable(writer.hasRest());
    }
}

void Producer::onClosed()
{
    {
        const std::lock_guard turn(writing);
        writer.attach(-1);
    }
    const std::lock_guard guard(mutex);
    for (auto &[id, entry] : entries) {
        entry.registered = false;
    }
}

} // namespace norq::event
