/** The two roads to the broker: a device event through the service, and libmosquitto alone. */
#pragma once

#include "shared_state.h"

#include <cstdint>
#include <memory>

namespace end_to_end {

/** Puts numbered messages on one of the roads. */
class Sender {
public:
    Sender() = default;
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;
    virtual ~Sender() = default;

    /** Waits only as long as the road's own library does. */
    virtual void send(std::uint64_t number) = 0;
};

/** An event producer whose events the service publishes with this QoS. */
std::unique_ptr<Sender> makeEventSender(int qos);

/**
 * A libmosquitto client with its own thread, as it comes, that publishes what the sample shows, but
 * for the number.
 */
std::unique_ptr<Sender> makeDirectSender(int port, int qos, const Sample &sample);

/** Topic filter, at the broker, of what is published with this QoS. */
const char *topicFilter(int qos);

/** The event filter, for the service's configuration. */
const char *eventFilter(int qos);

/** Receives everything of a filter, counts and times it. Never returns. */
[[noreturn]] void subscribe(int port, int qos, SharedState &shared);

} // namespace end_to_end
