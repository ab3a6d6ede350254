#include "mqtt/delivery.h"

#include <glib.h>
#include <mosquitto.h>

#include <algorithm>
#include <utility>

namespace norq::mqtt {
namespace {

/** QoS 0 messages that libmosquitto holds at most, waiting for the socket. */
constexpr std::size_t MAX_BEING_WRITTEN = 256;
/**
 * Messages of QoS 2 that are under way at most. The usual broker lets 20 wait for their release;
 * any message with QoS 1 or 2 beyond that it confirms, drops, and ends the connection. MQTT 3.1.1
 * has no means to ask a broker for its limit, so there is a distance to the default.
 */
constexpr std::size_t MAX_IN_FLIGHT_QOS2 = 10;
/** Bytes that libmosquitto holds at most, unless a single message is larger. */
constexpr std::size_t MAX_HANDED_BYTES = 1024UL * 1024;
/** Windows in a row before the other duties of the I/O thread get their turn. */
constexpr int MAX_ROUNDS = 8;

} // namespace

int Delivery::run(BrokerLink &link)
{
    int code = link.wantsWrite() ? link.write() : MOSQ_ERR_SUCCESS;
    for (int round = 0; round < MAX_ROUNDS && code == MOSQ_ERR_SUCCESS; ++round) {
        if (!refill() || !hasWork()) {
            break;
        }
        handOver(link);
        if (link.wantsWrite()) {
            code = link.write();
        }
    }
    // The wake-up for what is in the queue now may be used up: hasWork() has to know of it.
    refill();
    settle();
    return code;
}

bool Delivery::refill()
{
    return !next.empty() || queue.takeAll(next);
}

bool Delivery::hasWork() const
{
    return !next.empty() && fits(next.front());
}

bool Delivery::fits(const OutboundMessage &message) const
{
    const std::size_t handed = beingWritten.size() + inFlight.size();
    if (handed > 0 && handedBytes + message.size() > MAX_HANDED_BYTES) {
        return false;
    }
    if (message.qos == 0) {
        return beingWritten.size() < MAX_BEING_WRITTEN;
    }
    return inFlight.size() < BrokerLink::MAX_IN_FLIGHT &&
           (message.qos == 1 || inFlightQos2 < MAX_IN_FLIGHT_QOS2);
}

void Delivery::handOver(BrokerLink &link)
{
    while (hasWork()) {
        OutboundMessage &message = next.front();
        int messageId = 0;
        const int code = link.publish(messageId, message);
        if (code == MOSQ_ERR_NO_CONN && message.qos == 0) {
            return;
        }
        // Without a connection libmosquitto keeps a message of QoS 1 or 2 all the same.
        if (code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_NO_CONN) {
            record(messageId, std::move(message));
        } else {
            g_warning("MQTT: a message could not be sent and is dropped: %s",
                      mosquitto_strerror(code));
            ++finishedMessages;
            finishedBytes += message.size();
        }
        next.pop_front();
    }
}

void Delivery::record(int messageId, OutboundMessage &&message)
{
    handedBytes += message.size();
    if (message.qos == 0) {
        beingWritten.push_back({messageId, message.size()});
    } else {
        inFlightQos2 += message.qos == 2 ? 1 : 0;
        inFlight.push_back({messageId, std::move(message)});
    }
}

void Delivery::finish(std::size_t size)
{
    handedBytes -= size;
    ++finishedMessages;
    finishedBytes += size;
}

void Delivery::published(int messageId)
{
    // QoS 0 is written in order; the ids of both kinds come from the same counter, which wraps.
    if (!beingWritten.empty() && beingWritten.front().messageId == messageId) {
        finish(beingWritten.front().size);
        beingWritten.pop_front();
        return;
    }
    // Brokers confirm in order, as a rule: it is one of the first.
    const auto found = std::ranges::find(inFlight, messageId, &Sent::messageId);
    if (found != inFlight.end()) {
        finish(found->message.size());
        inFlightQos2 -= found->message.qos == 2 ? 1 : 0;
        inFlight.erase(found);
    }
}

void Delivery::connectionLost()
{
    for (const Written &message : beingWritten) {
        finish(message.size);
    }
    beingWritten.clear();
    settle();
}

void Delivery::startAnew()
{
    for (; !inFlight.empty(); inFlight.pop_back()) {
        OutboundMessage &message = inFlight.back().message;
        if (message.qos == 2) {
            finish(message.size());
        } else {
            handedBytes -= message.size();
            next.push_front(std::move(message));
        }
    }
    inFlightQos2 = 0;
    settle();
}

void Delivery::settle()
{
    if (finishedMessages > 0) {
        queue.finish(finishedMessages, finishedBytes);
        finishedMessages = 0;
        finishedBytes = 0;
    }
}

} // namespace norq::mqtt
