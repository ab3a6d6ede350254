/** Received messages on their way to the thread of the GLib default main context. */
#pragma once

#include "mqtt/subscription_table.h"
#include "mqtt/wake_fd.h"

#include <norq/mqtt_messaging.h>

#include <glib.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace norq::mqtt {

/** One received message. */
struct InboundMessage {
    std::string topic;
    std::string payload;
};

/**
 * Filled by the I/O thread, emptied by a GSource of the default main context, which calls the
 * handle's callback. Bounded: the I/O thread asks hasRoom() before it reads from the broker. The
 * data goes through this object's own lock alone.
 */
class InboundQueue : public std::enable_shared_from_this<InboundQueue> {
public:
    struct Limits {
        std::size_t messages;
        std::size_t bytes;
    };
    struct Receiver {
        MQTTMsg_message_callback callback;
        void *userData;
    };

    /**
     * @param table    decides in which forms a message is given
     * @param prefix   device topic prefix
     * @param ioThread woken when there is room again
     */
    InboundQueue(Limits bounds, Receiver target, std::shared_ptr<const SubscriptionTable> table,
                 std::string prefix, std::shared_ptr<WakeFd> ioThread);

    /** Starts the calls of the callback. */
    void attach();
    /** Ends them: on the thread of the main context, also from within the callback. */
    void close();

    /**
     * Whether another message may be read. On false the I/O thread is woken once half of the queue
     * is free.
     */
    [[nodiscard]] bool hasRoom();
    /** Puts a message in; beyond the bound too, as libmosquitto may hold one that it has read. */
    void push(InboundMessage &&message);
    /** Messages waiting. */
    [[nodiscard]] std::size_t size() const;

private:
    using Batch = std::vector<InboundMessage>;

    static gboolean dispatch(int fd, GIOCondition condition, void *data) noexcept;
    void dispatchBatch();
    [[nodiscard]] Batch takeBatch();
    void give(const InboundMessage &message);
    void call(const char *topic, bool prefixOff, const InboundMessage &message);
    [[nodiscard]] bool isFull() const;

    const Limits limits;
    const Receiver receiver;
    const std::shared_ptr<const SubscriptionTable> subscriptions;
    const std::string devicePrefix;
    const std::shared_ptr<WakeFd> reader;
    WakeFd ready;
    unsigned int sourceId = 0; // main thread only, once attached

    mutable std::mutex mutex; // guards all below
    std::deque<InboundMessage> waiting;
    std::size_t byteCount = 0;
    bool readerWaits = false;
    bool closed = false;
};

} // namespace norq::mqtt
