/** What is on its way to one client. */
#pragma once

#include "event/daemon/published.h"
#include "event/daemon/slot_table.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace norq::event {

/** An event for some subscriptions of one client. */
struct Delivery {
    std::shared_ptr<const Published> published;
    SharedBody body;
    std::uint8_t flags = 0;
    std::vector<std::uint32_t> subscriptions;

    /** Bytes that it counts in a backlog. */
    [[nodiscard]] std::size_t size() const
    {
        return sizeof(Delivery) + body->size() + subscriptions.size() * sizeof(std::uint32_t);
    }
};

/**
 * Deliveries in their order: first the bytes that are being written, then the backlog, which is
 * bounded in number and bytes. When it is full the oldest delivery is dropped.
 */
class DeliveryQueue {
public:
    enum class Written { ALL, BLOCKED, CLOSED };

    /** Adds a delivery at the end. */
    void push(Delivery delivery);
    /** Writes as much as the socket takes. */
    Written write(int socket);
    /** Drops the oldest delivery of the backlog; the newest always stays. */
    void dropOldest();
    /** Bytes in the backlog. */
    [[nodiscard]] std::size_t backlogBytes() const { return bytes; }
    [[nodiscard]] std::size_t backlogLength() const { return backlog.size(); }
    /**
     * True once for each run of drops. A run begins with the first drop and ends when the backlog
     * is empty again.
     */
    bool takeDropNotice();

private:
    void encode(const Delivery &delivery);
    void refill();
    [[nodiscard]] bool hasBytes() const { return written < ready.size(); }

    std::string ready; // encoded frames, written from the front
    std::size_t written = 0;
    std::deque<Delivery> backlog;
    std::size_t bytes = 0; // of the backlog
    SlotTable slots;
    bool dropping = false;
    bool noticePending = false;
};

} // namespace norq::event
