/** How long to wait before the next try. */
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace norq::event {

/** No delay before the first try, then delays that double up to a bound. */
class BackOff {
public:
    /** The delay before the next try. */
    std::chrono::milliseconds next()
    {
        return std::exchange(delay, std::clamp(2 * delay, FIRST, LAST));
    }

    /** Starts anew after a success. */
    void reset() { delay = std::chrono::milliseconds::zero(); }

private:
    static constexpr std::chrono::milliseconds FIRST{100};
    static constexpr std::chrono::milliseconds LAST{30'000};

    std::chrono::milliseconds delay{0};
};

} // namespace norq::event
