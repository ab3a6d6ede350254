#include "mqtt/outbound_queue.h"

#include <iterator>
#include <utility>

namespace norq::mqtt {

Verdict OutboundQueue::checkRoom(std::size_t size) const
{
    const std::lock_guard guard(mutex);
    return checkRoomLocked(size);
}

Verdict OutboundQueue::checkRoomLocked(std::size_t size) const
{
    if (size > byteLimit) {
        return refuse(MQTTMSG_TOO_LARGE, "The message has " + std::to_string(size) +
                                             " bytes, the settings allow " +
                                             std::to_string(byteLimit));
    }
    if (messageCount >= messageLimit) {
        return refuse(MQTTMSG_QUEUE_FULL, "The queue is full: " + std::to_string(messageLimit) +
                                              " messages are waiting");
    }
    if (byteCount + size > byteLimit) {
        return refuse(MQTTMSG_QUEUE_FULL, "The queue is full: " + std::to_string(byteCount) +
                                              " of " + std::to_string(byteLimit) +
                                              " bytes are taken");
    }
    return {};
}

Verdict OutboundQueue::push(OutboundMessage &&message)
{
    const std::lock_guard guard(mutex);
    const std::size_t size = message.size();
    Verdict verdict = checkRoomLocked(size);
    if (verdict.ok()) {
        waiting.push_back(std::move(message));
        ++messageCount;
        byteCount += size;
    }
    return verdict;
}

bool OutboundQueue::takeAll(std::deque<OutboundMessage> &target)
{
    const std::lock_guard guard(mutex);
    if (waiting.empty()) {
        return false;
    }
    if (target.empty()) {
        target.swap(waiting);
        return true;
    }
    target.insert(target.end(), std::make_move_iterator(waiting.begin()),
                  std::make_move_iterator(waiting.end()));
    waiting.clear();
    return true;
}

void OutboundQueue::finish(std::size_t messages, std::size_t bytes)
{
    const std::lock_guard guard(mutex);
    messageCount -= messages;
    byteCount -= bytes;
}

bool OutboundQueue::isHalfFree() const
{
    const std::lock_guard guard(mutex);
    return messageCount <= messageLimit / 2 && byteCount <= byteLimit / 2;
}

std::size_t OutboundQueue::unfinished() const
{
    const std::lock_guard guard(mutex);
    return messageCount;
}

} // namespace norq::mqtt
