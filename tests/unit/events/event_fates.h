/** What becomes of every single event that is delivered to a consumer. */
#pragma once

#include "events/event_consumer_handler.h"
#include "events/event_container.h"
#include "fakes/mock_event_consumer_handler.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace tovrel::test {

/** Numbers of events by their fate. */
struct FateCounts {
    std::size_t published = 0;
    std::size_t droppedByBound = 0;
    std::size_t discarded = 0;
    /** Their extraction failed. */
    std::size_t notQueued = 0;
    /** Published twice, or out of order, or ended nobody knows why. */
    std::size_t unaccounted = 0;
};

std::ostream &operator<<(std::ostream &stream, const FateCounts &counts);

/**
 * Stands between the deliveries and a consumer, and follows each event's container to its end.
 *
 * Who lets go of a container last tells why: the publish worker has published it; a delivery of a
 * later event has dropped it for the bound; the status worker has discarded it. A delivery never
 * lets go of its own event last unless it has been published meanwhile, because what a
 * deactivation discards waits for deliveries under way.
 *
 * While it lives, the deliveries of the process go through it, on one thread. The payload of each
 * event is the number that nextPayload() has given for it.
 */
class EventFates : public MockEventConsumerHandler {
public:
    explicit EventFates(EventConsumerHandler &ofConsumer);
    ~EventFates() override;

    /** The payload of the event that is delivered next. Delivering thread. */
    [[nodiscard]] std::string nextPayload() const;
    [[nodiscard]] std::size_t deliveredCount() const;

    /** To be called for each publication. */
    void notePublished(const std::string &payload);
    /** To be called on the status worker's thread. */
    void noteStatusWorker();

    /** Only after a deactivation, when nothing is left in the queue. */
    [[nodiscard]] FateCounts counts() const;

    void enqueueEvent(const std::shared_ptr<EventContainer> &container,
                      const event_t *event) override;

private:
    enum class End : std::uint8_t { NONE, LATER_DELIVERY, STATUS_WORKER, OTHER };
    struct Fate {
        End end = End::NONE;
        bool notQueued = false;
        std::uint8_t publications = 0;
    };

    void noteEnd(std::size_t number);

    EventConsumerHandler &consumer;
    mutable std::mutex mutex; // guards what follows
    std::vector<Fate> fates;  // by number
    std::optional<std::size_t> lastPublished;
    std::size_t outOfOrder = 0;
    std::optional<std::size_t> delivering;
    std::thread::id deliveringThread;
    std::thread::id statusThread;
};

} // namespace tovrel::test
