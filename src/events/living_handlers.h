/** Which consumer handlers exist, for callbacks that may come when theirs has gone. */
#pragma once

#include "events/calls_under_way.h"

#include <functional>
#include <mutex>
#include <set>

namespace tovrel {

/**
 * The process-wide set of handlers that callbacks may use. A use stays counted until it ends, so
 * that taking a handler out can wait for it. Handlers are mere addresses here, because one that is
 * asked about need not exist. Any thread.
 */
class LivingHandlers {
public:
    /** The one set of the process. */
    static LivingHandlers &instance();

    void add(const void *handler);

    /** Takes a handler out and returns when nothing uses it. Not to be called from a use. */
    void remove(const void *handler);

    /** Calls `use`, outside the lock, when the handler is in the set; else returns false. */
    bool ifLiving(const void *handler, const std::function<void()> &use);

private:
    std::mutex mutex; // guards both members
    std::set<const void *> handlers;
    CallsUnderWay uses;
};

} // namespace tovrel
