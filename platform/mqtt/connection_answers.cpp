/** What the broker says to a connection. */
#include "mqtt/connection.h"

#include <mosquitto.h>

#include <utility>

namespace norq::mqtt {
namespace {

/** The QoS by which a broker refuses a subscription. */
constexpr int REFUSED = 128;

} // namespace

bool Connection::onConnect(int code, bool sessionPresent)
{
    accepted = code == 0;
    brokerHasSession = sessionPresent;
    if (code != 0) {
        refusal = mosquitto_connack_string(code);
    }
    return !sessionIsLost();
}

void Connection::onPublished(int messageId)
{
    delivery.published(messageId);
}

void Connection::onSubscribed(int messageId, int grantedQos)
{
    const auto found = subscribing.find(messageId);
    if (found == subscribing.end()) {
        return;
    }
    if (grantedQos >= REFUSED) {
        log.subscriptionRefused(found->second);
    }
    subscribing.erase(found);
}

void Connection::onMessage(const mosquitto_message &message)
{
    InboundMessage received{message.topic, {}};
    if (message.payload != nullptr && message.payloadlen > 0) {
        received.payload.assign(static_cast<const char *>(message.payload),
                                static_cast<std::size_t>(message.payloadlen));
    }
    parts.inbound->push(std::move(received));
}

} // namespace norq::mqtt
