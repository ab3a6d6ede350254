/** The distance of attempts: doubled each time up to a maximum, with jitter. */
#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace norq::mqtt {

/**
 * Gives a random part, at least half, of 1 s, 2 s, 4 s, ... up to MAXIMUM, so that clients that
 * lost the same broker do not come back all at once.
 */
class BackOff {
public:
    using Duration = std::chrono::milliseconds;
    static constexpr Duration FIRST{1'000};
    static constexpr Duration MAXIMUM{30'000};

    /** How long to wait before the next attempt. */
    Duration next()
    {
        std::uniform_int_distribution<Duration::rep> jitter(step.count() / 2, step.count());
        const Duration result(jitter(random));
        step = std::min(step * 2, MAXIMUM);
        return result;
    }
    /** An attempt was a lasting success. */
    void reset() { step = FIRST; }

private:
    Duration step = FIRST;
    std::minstd_rand random{std::random_device{}()};
};

} // namespace norq::mqtt
