#include "unit/mqtt/failing_lock.h"

#include <pthread.h>

#include <cerrno>
#include <utility>

namespace tovrel::test {

namespace {

thread_local bool lockFails = false;

} // namespace

void failNextLock()
{
    lockFails = true;
}

} // namespace tovrel::test

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    return std::exchange(tovrel::test::lockFails, false) ? EINVAL
                                                         : __real_pthread_mutex_lock(mutex);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
