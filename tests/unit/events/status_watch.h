/** What the status worker does, without asking the consumer. */
#pragma once

#include "events/event_consumer_handler.h"
#include "support/wait_until.h"
#include "unit/events/held_worker.h"
#include "unit/events/wrapped_sync.h"

#include <atomic>
#include <condition_variable>

namespace tovrel::test {

/**
 * Counts how often the status worker was woken, and how often it found nothing left to do. Made
 * before the consumer is started, and gone after it. Uses the hooks on waits and notifications.
 */
class StatusWatch {
public:
    explicit StatusWatch(const EventConsumerHandler &consumer)
    {
        syncHooks().beforeWait = [this, &consumer](const std::condition_variable *condition) {
            idle += isConditionOf(consumer, Worker::STATUS, condition) ? 1 : 0;
        };
        syncHooks().afterNotify = [this, &consumer](const std::condition_variable *condition) {
            notified += isConditionOf(consumer, Worker::STATUS, condition) ? 1 : 0;
        };
    }
    ~StatusWatch() { syncHooks() = {}; }
    StatusWatch(const StatusWatch &) = delete;
    StatusWatch &operator=(const StatusWatch &) = delete;

    [[nodiscard]] int wakeUps() const { return notified; }
    [[nodiscard]] int idleCount() const { return idle; }

    /** Waits until all requests so far were dealt with at least that often since the start. */
    [[nodiscard]] bool waitForIdle(int count = 1) const
    {
        return test_support::waitUntil([this, count] { return idle >= count; });
    }

private:
    std::atomic<int> idle = 0;
    std::atomic<int> notified = 0;
};

} // namespace tovrel::test
