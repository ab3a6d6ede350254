/** A result that another thread brings, waited for until a deadline. */
#pragma once

#include "event/client/timed_lock.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace norq::event {

/** Copies share one result. */
template <typename Result>
class Deferred {
public:
    void set(Result result)
    {
        const std::lock_guard guard(state->mutex);
        state->result = std::move(result);
        state->arrived.notify_all();
    }

    /** The result; nothing when it is not there by the deadline. */
    std::optional<Result> waitUntil(Deadline deadline)
    {
        std::unique_lock guard(state->mutex);
        state->arrived.wait_until(guard, deadline, [this] { return state->result.has_value(); });
        return state->result;
    }

private:
    struct State {
        std::mutex mutex; // guards result
        std::condition_variable arrived;
        std::optional<Result> result;
    };
    std::shared_ptr<State> state = std::make_shared<State>();
};

} // namespace norq::event
