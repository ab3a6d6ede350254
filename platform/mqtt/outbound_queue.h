/** The messages that were accepted for publication: the one backlog of a handle, and its bound. */
#pragma once

#include "mqtt/topic_rules.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

namespace norq::mqtt {

/** One message to publish. */
struct OutboundMessage {
    std::string topic;
    std::string payload;
    int qos = 0;
    bool retain = false;

    /** What the message counts against the byte bound. */
    [[nodiscard]] std::size_t size() const { return topic.size() + payload.size(); }
};

/**
 * Filled by any thread, emptied by the I/O thread. A message occupies its place until finish() is
 * called for it, which is after it has left the queue: the bound covers what is waiting and what
 * is under way together.
 */
class OutboundQueue {
public:
    OutboundQueue(std::size_t maxMessages, std::size_t maxBytes)
        : messageLimit(maxMessages), byteLimit(maxBytes)
    {
    }

    /**
     * Looks whether a message of this size would be taken: cheap, before it is copied. Messages
     * larger than the whole byte bound are MQTTMSG_TOO_LARGE, others MQTTMSG_QUEUE_FULL.
     */
    [[nodiscard]] Verdict checkRoom(std::size_t size) const;
    /** Takes the message, or refuses it as checkRoom() does. */
    Verdict push(OutboundMessage &&message);
    /** Moves everything that waits to the end of `target`; false when nothing waits. */
    bool takeAll(std::deque<OutboundMessage> &target);
    /** Gives back the places of finished messages. */
    void finish(std::size_t messages, std::size_t bytes);
    /** Whether at least half of the places and of the bytes are free. */
    [[nodiscard]] bool isHalfFree() const;
    /** Messages accepted and not finished. */
    [[nodiscard]] std::size_t unfinished() const;

private:
    [[nodiscard]] Verdict checkRoomLocked(std::size_t size) const;

    const std::size_t messageLimit;
    const std::size_t byteLimit;
    mutable std::mutex mutex; // guards all below
    std::deque<OutboundMessage> waiting;
    std::size_t messageCount = 0;
    std::size_t byteCount = 0;
};

} // namespace norq::mqtt
