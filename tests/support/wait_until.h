/** Waiting for a condition that another thread or process brings about, with a deadline. */
#pragma once

#include <chrono>
#include <thread>

namespace test_support {

/** Longest wait of a test for something that is bound to happen; generous for sanitizer builds. */
inline constexpr std::chrono::seconds DEADLINE{20};

/** True as soon as `condition` holds, false when it does not within `limit`. */
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition, std::chrono::milliseconds limit = DEADLINE)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace test_support
