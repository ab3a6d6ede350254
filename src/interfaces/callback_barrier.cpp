#include "interfaces/callback_barrier.h"

#include "interfaces/log.h"

#include <mutex>

namespace tovrel {

namespace {

/** Where an exception waits for the main loop to end. */
struct Carrier {
    std::mutex mutex; // guards both members: a callback may run on any thread
    std::exception_ptr exception;
    GMainLoop *loop = nullptr;
};

Carrier &carrier()
{
    static Carrier instance;
    return instance;
}

void throwCarried()
{
    std::exception_ptr exception;
    {
        const std::lock_guard lock(carrier().mutex);
        exception = std::exchange(carrier().exception, nullptr);
    }
    if (exception) {
        std::rethrow_exception(exception);
    }
}

void setLoop(GMainLoop *loop)
{
    const std::lock_guard lock(carrier().mutex);
    carrier().loop = loop;
}

} // namespace

void runMainLoop(GMainLoop *loop)
{
    throwCarried();
    setLoop(loop);
    g_main_loop_run(loop);
    setLoop(nullptr);
    throwCarried();
}

namespace barrier {

void carryCurrentException() noexcept
{
    const std::lock_guard lock(carrier().mutex);
    if (!carrier().exception) {
        carrier().exception = std::current_exception();
    }
    if (carrier().loop != nullptr) {
        g_main_loop_quit(carrier().loop);
    }
}

void logCurrentException(const char *callbackName) noexcept
{
    try {
        throw;
    } catch (const std::exception &error) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sException in %s: %s", LOG_PREFIX, callbackName,
                   error.what());
    } catch (...) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sUnknown exception in %s", LOG_PREFIX, callbackName);
    }
}

} // namespace barrier

} // namespace tovrel
