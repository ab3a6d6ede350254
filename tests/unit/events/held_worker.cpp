#include "unit/events/held_worker.h"

#include "support/wait_until.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace tovrel::test {

namespace {

/** The consumer's mutex that the calling thread locked last. */
thread_local const pthread_mutex_t *lastLocked = nullptr;

std::ptrdiff_t offsetIn(const EventConsumerHandler &consumer, const void *member)
{
    return static_cast<const char *>(member) - reinterpret_cast<const char *>(&consumer);
}

/** Where the conditions that workers wait for stand in a consumer, in the order of declaration. */
std::set<std::ptrdiff_t> findConditions()
{
    std::mutex mutex; // guards offsets
    std::set<std::ptrdiff_t> offsets;
    EventConsumerHandler consumer(nullptr);
    syncHooks().beforeWait = [&](const std::condition_variable *condition) {
        const std::lock_guard lock(mutex);
        offsets.insert(offsetIn(consumer, condition));
    };
    consumer.start("");
    const bool found = test_support::waitUntil([&] {
        const std::lock_guard lock(mutex);
        return offsets.size() == 2;
    });
    const std::lock_guard lock(mutex);
    return found ? offsets : std::set<std::ptrdiff_t>{-1};
}

} // namespace

std::ptrdiff_t workerConditionOffset(Worker worker)
{
    static const auto OFFSETS = [] {
        const auto offsets = findConditions();
        syncHooks() = {};
        return offsets;
    }();
    return worker == Worker::STATUS ? *OFFSETS.begin() : *OFFSETS.rbegin();
}

bool isConditionOf(const EventConsumerHandler &consumer, Worker worker,
                   const std::condition_variable *condition)
{
    return offsetIn(consumer, condition) == workerConditionOffset(worker);
}

HeldWorker::HeldWorker(const EventConsumerHandler &ofConsumer, Worker worker) : consumer(ofConsumer)
{
    workerConditionOffset(worker); // not to be found out while a hook runs
    syncHooks().afterLock = [this](const pthread_mutex_t *locked) {
        if (isWithin(consumer, locked)) {
            lastLocked = locked;
        }
    };
    syncHooks().beforeWait = [this, worker](std::condition_variable *waited) {
        if (isConditionOf(consumer, worker, waited)) {
            condition = waited;
            hold();
        }
    };
    syncHooks().afterNotify = [this, worker](const std::condition_variable *notified) {
        if (isConditionOf(consumer, worker, notified)) {
            release();
        }
    };
    syncHooks().beforeLock = [this](const pthread_mutex_t *wanted) {
        bool isHeldMutex = false;
        {
            const std::lock_guard lock(mutex);
            isHeldMutex = held && wanted == heldMutex;
        }
        if (isHeldMutex) {
            release();
        }
    };
}

HeldWorker::~HeldWorker()
{
    syncHooks() = {};
}

void HeldWorker::hold()
{
    std::unique_lock lock(mutex);
    if (held) {
        return;
    }
    held = true;
    heldMutex = lastLocked;
    changed.notify_all();
    changed.wait_for(lock, test_support::DEADLINE, [this] { return released; });
}

void HeldWorker::release()
{
    const std::lock_guard lock(mutex);
    released = released || held;
    changed.notify_all();
}

bool HeldWorker::waitUntilHeld()
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, test_support::DEADLINE, [this] { return held; });
}

void HeldWorker::rescue()
{
    condition->notify_all();
}

} // namespace tovrel::test
