/** Stops a worker of the consumer where a wake-up could be lost. */
#pragma once

#include "events/event_consumer_handler.h"
#include "unit/events/wrapped_sync.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace tovrel::test {

/** The two workers of a consumer. */
enum class Worker { STATUS, PUBLISH };

/**
 * Where in a consumer the condition stands that a worker waits for, in bytes. The first call runs a
 * consumer of its own to find out, and clears the hooks.
 */
std::ptrdiff_t workerConditionOffset(Worker worker);

/** Whether a condition is the one that a worker of this consumer waits for. */
bool isConditionOf(const EventConsumerHandler &consumer, Worker worker,
                   const std::condition_variable *condition);

/**
 * Holds a worker at its first wait: after it has found nothing to do, before it waits. It goes on
 * as soon as another thread has either notified its condition, in which case nobody will wake it
 * again, or has come to lock the mutex that it holds.
 *
 * Made before the consumer is started. Uses the hooks on locks, waits and notifications.
 */
class HeldWorker {
public:
    HeldWorker(const EventConsumerHandler &ofConsumer, Worker worker);
    /** The consumer's threads must have ended. */
    ~HeldWorker();
    HeldWorker(const HeldWorker &) = delete;
    HeldWorker &operator=(const HeldWorker &) = delete;

    /** Waits until the worker is held; false when it does not come there in time. */
    [[nodiscard]] bool waitUntilHeld();

    /** Wakes the worker, so that a failed test can end. The consumer must live. */
    void rescue();

private:
    void hold();
    void release();

    const EventConsumerHandler &consumer;
    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    bool held = false;
    bool released = false;
    const pthread_mutex_t *heldMutex = nullptr;
    std::condition_variable *condition = nullptr;
};

} // namespace tovrel::test
