/** Hands accepted messages over to libmosquitto and keeps the account of what is finished. */
#pragma once

#include "mqtt/broker_link.h"
#include "mqtt/outbound_queue.h"

#include <cstddef>
#include <deque>

namespace norq::mqtt {

/**
 * I/O thread only. libmosquitto gets no more than a window of messages at a time, so that the
 * queue of the handle is the only backlog. Order is kept over all QoS.
 */
class Delivery {
public:
    explicit Delivery(OutboundQueue &outbound) : queue(outbound) {}

    /**
     * Hands over and writes as much as window and socket take. Returns a code of libmosquitto
     * other than 0 when the connection failed.
     */
    int run(BrokerLink &link);
    /** Whether run() would get on at once. */
    [[nodiscard]] bool hasWork() const;
    /** Whether the broker still has to confirm a message of QoS 2. */
    [[nodiscard]] bool awaitsQos2() const { return inFlightQos2 > 0; }

    /** A message is finished. */
    void published(int messageId);
    /**
     * The connection broke. QoS 0 messages that libmosquitto still held are lost; it sends the
     * others again by itself.
     */
    void connectionLost();
    /**
     * libmosquitto has forgotten all it was given. What the broker had not confirmed is handed over
     * again, before all else; but QoS 2 is lost: the broker may have it already.
     */
    void startAnew();
    /** Gives the places of finished messages back to the queue. */
    void settle();

private:
    struct Written {
        int messageId;
        std::size_t size;
    };
    struct Sent {
        int messageId;
        OutboundMessage message;
    };

    bool refill();
    void handOver(BrokerLink &link);
    [[nodiscard]] bool fits(const OutboundMessage &message) const;
    void record(int messageId, OutboundMessage &&message);
    void finish(std::size_t size);

    OutboundQueue &queue;
    std::deque<OutboundMessage> next; // taken from the queue, not yet handed over
    std::deque<Written> beingWritten; // QoS 0 with libmosquitto, in order
    std::deque<Sent> inFlight;        // QoS 1 and 2, in order
    std::size_t inFlightQos2 = 0;
    std::size_t handedBytes = 0;
    std::size_t finishedMessages = 0;
    std::size_t finishedBytes = 0;
};

} // namespace norq::mqtt
