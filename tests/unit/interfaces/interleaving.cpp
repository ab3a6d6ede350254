#include "unit/interfaces/interleaving.h"

#include <glib.h>
#include <pthread.h>

#include <utility>

namespace tovrel::test {

namespace {

thread_local std::function<void()> unlockHook;
thread_local std::function<void()> startHook;
thread_local std::function<void()> endHook;

void runOnce(std::function<void()> &hook)
{
    if (const auto taken = std::exchange(hook, nullptr)) {
        taken();
    }
}

} // namespace

void afterNextUnlock(std::function<void()> hook)
{
    unlockHook = std::move(hook);
}

void beforeNextLoop(std::function<void()> hook)
{
    startHook = std::move(hook);
}

void afterNextLoop(std::function<void()> hook)
{
    endHook = std::move(hook);
}

} // namespace tovrel::test

using namespace tovrel::test;

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex);
void __real_g_main_loop_run(GMainLoop *loop);
void __wrap_g_main_loop_run(GMainLoop *loop);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    const int result = __real_pthread_mutex_unlock(mutex);
    runOnce(unlockHook);
    return result;
}

void __wrap_g_main_loop_run(GMainLoop *loop)
{
    runOnce(startHook);
    __real_g_main_loop_run(loop);
    runOnce(endHook);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
