/** A lock that can be waited for until a deadline. */
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace norq::event {

using Deadline = std::chrono::steady_clock::time_point;

/**
 * A lock held while somebody may wait for the service. Made of a mutex that is never held for long
 * and a condition, because the thread sanitizer cannot follow std::timed_mutex.
 */
class TimedLock {
public:
    /** Takes the lock; false when it was not free until the deadline. */
    bool lockUntil(Deadline deadline)
    {
        std::unique_lock guard(mutex);
        if (!becameFree.wait_until(guard, deadline, [this] { return !held; })) {
            return false;
        }
        held = true;
        return true;
    }

    void lock()
    {
        std::unique_lock guard(mutex);
        becameFree.wait(guard, [this] { return !held; });
        held = true;
    }

    bool try_lock() // NOLINT(readability-identifier-naming): the standard's name for it
    {
        const std::lock_guard guard(mutex);
        return !std::exchange(held, true);
    }

    void unlock()
    {
        {
            const std::lock_guard guard(mutex);
            held = false;
        }
        becameFree.notify_one();
    }

private:
    std::mutex mutex; // guards held
    std::condition_variable becameFree;
    bool held = false;
};

} // namespace norq::event
