#include "unit/events/wrapped_sync.h"

#include "fakes/call_record.h"

#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

namespace tovrel::test {

SyncHooks &syncHooks()
{
    static SyncHooks hooks;
    return hooks;
}

namespace {

thread_local bool inHook = false;

/** Runs a hook, but not for what the hook itself does. */
template <typename Result, typename Argument>
Result run(const std::function<Result(Argument)> &hook, Argument argument)
{
    if (!hook || inHook) {
        return Result();
    }
    inHook = true;
    struct Leave {
        ~Leave() { inHook = false; }
    } const leave;
    return hook(argument);
}

} // namespace

} // namespace tovrel::test

using tovrel::test::run;
using tovrel::test::shallFail;
using tovrel::test::syncHooks;

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
// Mangled names of std::thread::join(), std::condition_variable::wait(std::unique_lock<std::mutex>
// &) and ::notify_all().
void __real__ZNSt6thread4joinEv(std::thread *thread);
void __real__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(
    std::condition_variable *condition, std::unique_lock<std::mutex> &lock);
void __real__ZNSt18condition_variable10notify_allEv(std::condition_variable *condition);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);

void __wrap__ZNSt6thread4joinEv(std::thread *thread);
void __wrap__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(
    std::condition_variable *condition, std::unique_lock<std::mutex> &lock);
void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable *condition);
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex);
}

void __wrap__ZNSt6thread4joinEv(std::thread *thread)
{
    run<void, const std::thread *>(syncHooks().beforeJoin, thread);
    __real__ZNSt6thread4joinEv(thread);
    if (shallFail("std::thread::join")) {
        throw std::system_error(std::make_error_code(std::errc::no_such_process));
    }
}

void __wrap__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(
    std::condition_variable *condition, std::unique_lock<std::mutex> &lock)
{
    run(syncHooks().beforeWait, condition);
    __real__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(condition, lock);
}

void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable *condition)
{
    __real__ZNSt18condition_variable10notify_allEv(condition);
    run(syncHooks().afterNotify, condition);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    run<void, const pthread_mutex_t *>(syncHooks().beforeLock, mutex);
    if (const int error = run<int, const pthread_mutex_t *>(syncHooks().lockError, mutex)) {
        return error;
    }
    const int result = __real_pthread_mutex_lock(mutex);
    run<void, const pthread_mutex_t *>(syncHooks().afterLock, mutex);
    return result;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    const int result = __real_pthread_mutex_unlock(mutex);
    run<void, const pthread_mutex_t *>(syncHooks().afterUnlock, mutex);
    return result;
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
