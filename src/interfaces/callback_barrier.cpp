#include "interfaces/callback_barrier.h"

#include "interfaces/c_handles.h"
#include "interfaces/log.h"

#include <mutex>

namespace tovrel {

namespace {

/** Where an exception waits for the main loop to end. */
struct Carrier {
    std::mutex mutex; // guards all members: a callback may run on any thread
    std::exception_ptr exception;
    CHandle<GSource, g_source_unref> quitSource; // from before the loop runs until it has ended
};

Carrier &carrier()
{
    static Carrier instance;
    return instance;
}

void throwIfAny(const std::exception_ptr &exception)
{
    if (exception) {
        std::rethrow_exception(exception);
    }
}

gboolean quitLoop(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_REMOVE;
}

gboolean dispatchQuit(GSource * /*source*/, GSourceFunc callback, gpointer loop)
{
    return callback(loop);
}

/** Without a way to be ready but its time. GLib only reads the functions. */
GSourceFuncs quitSourceFunctions = {nullptr, nullptr, dispatchQuit, nullptr, nullptr, nullptr};

/**
 * Lets the loop quit itself as soon as the source is given a time. Quitting from the carrying
 * thread would be lost when the loop is about to be run: a loop that starts forgets that it was
 * quit, but not the sources of its context. The priority puts the source before all others, so that
 * a busy one cannot keep the loop running.
 */
CHandle<GSource, g_source_unref> attachQuitSource(GMainLoop *loop)
{
    CHandle<GSource, g_source_unref> source(g_source_new(&quitSourceFunctions, sizeof(GSource)));
    g_source_set_priority(source.get(), G_PRIORITY_HIGH);
    g_source_set_callback(source.get(), quitLoop, loop, nullptr);
    g_source_attach(source.get(), g_main_loop_get_context(loop));
    return source;
}

/** From here on a carried exception quits `loop`; one that was carried before is handed back. */
std::exception_ptr enterLoop(GMainLoop *loop)
{
    // One look and one note under one lock: nothing can be carried unseen between the two.
    const std::lock_guard lock(carrier().mutex);
    if (!carrier().exception) {
        carrier().quitSource = attachQuitSource(loop);
    }
    return std::exchange(carrier().exception, nullptr);
}

/** The loop has ended: hands back what was carried, and leaves nothing that quits a later run. */
std::exception_ptr leaveLoop()
{
    const std::lock_guard lock(carrier().mutex);
    g_source_destroy(carrier().quitSource.get());
    carrier().quitSource.reset();
    return std::exchange(carrier().exception, nullptr);
}

} // namespace

void runMainLoop(GMainLoop *loop)
{
    throwIfAny(enterLoop(loop));
    g_main_loop_run(loop);
    throwIfAny(leaveLoop());
}

namespace barrier {

void carryCurrentException() noexcept
{
    const std::lock_guard lock(carrier().mutex);
    if (carrier().exception) {
        return;
    }
    carrier().exception = std::current_exception();
    if (carrier().quitSource) {
        g_source_set_ready_time(carrier().quitSource.get(), 0);
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
