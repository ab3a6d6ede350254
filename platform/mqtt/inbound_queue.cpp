#include "mqtt/inbound_queue.h"

#include "mqtt/topic_rules.h"

#include <glib-unix.h>

#include <utility>

namespace norq::mqtt {
namespace {

/** Calls in a row before other sources of the main loop get their turn. */
constexpr std::size_t MAX_BATCH = 32;

/** What an empty message counts against the byte bound. */
constexpr std::size_t OVERHEAD = 64;

std::size_t sizeOf(const InboundMessage &message)
{
    return message.topic.size() + message.payload.size() + OVERHEAD;
}

using QueuePointer = std::shared_ptr<InboundQueue>;

void releasePointer(void *data)
{
    delete static_cast<QueuePointer *>(data);
}

} // namespace

InboundQueue::InboundQueue(Limits bounds, Receiver target,
                           std::shared_ptr<const SubscriptionTable> table, std::string prefix,
                           std::shared_ptr<WakeFd> ioThread)
    : limits(bounds),
      receiver(target),
      subscriptions(std::move(table)),
      devicePrefix(std::move(prefix)),
      reader(std::move(ioThread))
{
}

void InboundQueue::attach()
{
    // Ordered by this object's own lock for the main thread, which takes it before it reads.
    const std::lock_guard guard(mutex);
    auto self = std::make_unique<QueuePointer>(shared_from_this());
    sourceId = g_unix_fd_add_full(G_PRIORITY_DEFAULT, ready.fd(), G_IO_IN, dispatch, self.release(),
                                  releasePointer);
}

void InboundQueue::close()
{
    unsigned int source = 0;
    {
        const std::lock_guard guard(mutex);
        closed = true;
        waiting.clear();
        byteCount = 0;
        source = std::exchange(sourceId, 0);
    }
    if (source != 0) {
        g_source_remove(source);
    }
}

bool InboundQueue::isFull() const
{
    return waiting.size() >= limits.messages || byteCount >= limits.bytes;
}

bool InboundQueue::hasRoom()
{
    const std::lock_guard guard(mutex);
    readerWaits = !closed && isFull();
    return !readerWaits;
}

void InboundQueue::push(InboundMessage &&message)
{
    {
        const std::lock_guard guard(mutex);
        if (closed) {
            return;
        }
        byteCount += sizeOf(message);
        waiting.push_back(std::move(message));
    }
    ready.signal();
}

std::size_t InboundQueue::size() const
{
    const std::lock_guard guard(mutex);
    return waiting.size();
}

gboolean InboundQueue::dispatch(int /*fd*/, GIOCondition /*condition*/, void *data) noexcept
{
    // The callback may delete the handle: this keeps the queue for the rest of the call.
    const QueuePointer self = *static_cast<QueuePointer *>(data);
    self->dispatchBatch();
    return G_SOURCE_CONTINUE;
}

void InboundQueue::dispatchBatch()
{
    ready.drain();
    for (const InboundMessage &message : takeBatch()) {
        give(message);
    }
}

InboundQueue::Batch InboundQueue::takeBatch()
{
    Batch batch;
    bool wakeReader = false;
    bool more = false;
    {
        const std::lock_guard guard(mutex);
        while (!waiting.empty() && batch.size() < MAX_BATCH) {
            byteCount -= sizeOf(waiting.front());
            batch.push_back(std::move(waiting.front()));
            waiting.pop_front();
        }
        more = !waiting.empty();
        const bool roomy = waiting.size() <= limits.messages / 2 && byteCount <= limits.bytes / 2;
        wakeReader = readerWaits && roomy;
        readerWaits = readerWaits && !roomy;
    }
    if (more) {
        ready.signal();
    }
    if (wakeReader) {
        reader->signal();
    }
    return batch;
}

void InboundQueue::give(const InboundMessage &message)
{
    const char *topic = message.topic.c_str();
    const SubscriptionTable::Match match = subscriptions->match(message.topic);
    if (devicePrefix.empty()) {
        call(topic, match.withFlag, message);
        return;
    }
    const bool prefixed = hasPrefix(devicePrefix, message.topic);
    const bool leftOver = !match.withFlag && !match.withoutFlag;
    const bool asItStands = match.withoutFlag || !prefixed;
    if (prefixed && (match.withFlag || leftOver)) {
        call(topic + devicePrefix.size() + 1, true, message);
    }
    if (asItStands) {
        call(topic, false, message);
    }
}

void InboundQueue::call(const char *topic, bool prefixOff, const InboundMessage &message)
{
    {
        const std::lock_guard guard(mutex);
        if (closed) {
            return;
        }
    }
    receiver.callback(topic, prefixOff, message.payload.empty() ? nullptr : message.payload.data(),
                      static_cast<int>(message.payload.size()), receiver.userData);
}

} // namespace norq::mqtt
