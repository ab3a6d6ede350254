/**
 * The one barrier between C callbacks and exceptions: nothing is ever thrown through C frames.
 *
 * A callback that the main loop dispatched (GLib sources, sd-bus methods and replies) carries its
 * exception to the main loop, which ends; runMainLoop() throws it again there. A callback that a
 * platform library made logs its exception, and work goes on.
 */
#pragma once

#include <glib.h>

#include <exception>
#include <functional>
#include <utility>

namespace tovrel {

/**
 * Runs `loop` until it is quit, then throws again the first exception that was carried, if any.
 * One that was carried before the call is thrown without running the loop. One loop at a time, on
 * one thread.
 */
void runMainLoop(GMainLoop *loop);

namespace barrier {

/**
 * Keeps the exception in flight unless one is kept already, and lets the loop of runMainLoop() quit
 * itself as the next thing it does, also when it is only about to run. Any thread.
 */
void carryCurrentException() noexcept;

/** Logs the exception in flight as coming from `callbackName`. */
void logCurrentException(const char *callbackName) noexcept;

} // namespace barrier

/** Body of a callback made by the main loop; gives `fallback` to the C caller after an exception.
 */
template <typename Result, typename Body>
Result carryToMainLoop(Result fallback, Body &&body) noexcept
{
    try {
        return std::invoke(std::forward<Body>(body));
    } catch (...) {
        barrier::carryCurrentException();
        return fallback;
    }
}

/** Body of a callback made by a platform library, named for the log. */
template <typename Body>
void logAndCarryOn(const char *callbackName, Body &&body) noexcept
{
    try {
        std::invoke(std::forward<Body>(body));
    } catch (...) {
        barrier::logCurrentException(callbackName);
    }
}

} // namespace tovrel
