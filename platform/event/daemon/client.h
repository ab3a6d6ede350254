/** A client of the service, as the registry knows it. */
#pragma once

#include "event/daemon/delivery_queue.h"
#include "event/daemon/published.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace norq::event {

/** Holds what the client declared and subscribed, and what is on its way to it. */
class Client {
public:
    explicit Client(std::string clientName) : name(std::move(clientName)) {}
    virtual ~Client() = default;
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    /** Writes what can be written of the queue. Must not remove the client. */
    virtual void flush() = 0;

    const std::string name;
    std::map<std::uint32_t, DeclarationRecord> declarations; // by the client's id
    std::map<std::uint32_t, Subscription> subscriptions;     // by the client's id
    std::size_t texts = 0;                                   // memory of both
    std::size_t kept = 0;                                    // bytes of kept values
    DeliveryQueue queue;
    std::vector<std::uint32_t> matched; // subscriptions of the event that is being routed
    bool needsFlush = false;
};

} // namespace norq::event
