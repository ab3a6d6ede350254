/**
 * The standard library's locks, waits and joins as a test sees them happen. The linker puts these
 * before the calls of the program and of the code under test; inside of the standard library
 * itself nothing is changed.
 */
#pragma once

#include <condition_variable>
#include <functional>
#include <thread>

#include <pthread.h>

namespace tovrel::test {

/** Hooks, each on the thread that makes the call. To be set while no other thread runs. */
struct SyncHooks {
    /** Before a wait on a condition: its predicate was false, its lock is still held. */
    std::function<void(std::condition_variable *)> beforeWait;
    /** Before a thread is joined. */
    std::function<void(const std::thread *)> beforeJoin;
    /** After a condition was notified. */
    std::function<void(std::condition_variable *)> afterNotify;
    /** Before a lock, which may have to be waited for. */
    std::function<void(const pthread_mutex_t *)> beforeLock;
    /** Instead of a lock when it gives an error number other than 0. */
    std::function<int(const pthread_mutex_t *)> lockError;
    std::function<void(const pthread_mutex_t *)> afterLock;
    std::function<void(const pthread_mutex_t *)> afterUnlock;
};

/** Whether an address lies within an object. */
template <typename Object>
bool isWithin(const Object &object, const void *address)
{
    const auto *const first = reinterpret_cast<const char *>(&object);
    const auto *const searched = static_cast<const char *>(address);
    return searched >= first && searched < first + sizeof(Object);
}

/** The hooks of the process. */
SyncHooks &syncHooks();

} // namespace tovrel::test
