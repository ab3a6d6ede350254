/** Keeps a misbehaving client from flooding the log. */
#pragma once

#include <chrono>

namespace norq::event {

/** Lets so many lines through in each span of time. Needs no timer. */
class RateLimit {
public:
    using Clock = std::chrono::steady_clock;

    /** Whether a line may be written now. */
    bool admits(Clock::time_point now = Clock::now())
    {
        if (now - spanStart >= SPAN) {
            spanStart = now;
            count = 0;
        }
        count = count > LINES ? count : count + 1;
        return count <= LINES;
    }

private:
    static constexpr int LINES = 10;
    static constexpr std::chrono::seconds SPAN{60};

    Clock::time_point spanStart;
    int count = 0;
};

} // namespace norq::event
