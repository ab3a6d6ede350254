/** The last stop of exceptions before C code: no C frame can be unwound. */
#pragma once

#include "event/core/log.h"

#include <exception>
#include <utility>

namespace norq::event {

/**
 * Runs `body` and gives its result, or `onFailure` and a log line at the error level when it
 * throws. `what` says what was being done.
 */
template <typename Result, typename Body>
Result withBarrier(const char *what, Result onFailure, Body body) noexcept
{
    try {
        return body();
    } catch (const std::exception &failure) {
        norq_event_log(LOG_ERROR_LEVEL, "%s failed: %s", what, failure.what());
    } catch (...) {
        norq_event_log(LOG_ERROR_LEVEL, "%s failed", what);
    }
    return onFailure;
}

} // namespace norq::event
