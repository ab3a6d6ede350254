/** One measurement: a sender, a subscriber, and what came of it. */
#pragma once

#include "services.h"
#include "shared_state.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace end_to_end {

/** The two sides of the comparison. */
enum class Side { EVENTS, DIRECT };

/** How a sender sends. */
struct Plan {
    enum class Pace {
        WINDOW, /**< as fast as the messages arrive: a window of them is under way at most */
        PACED,  /**< 1000 a second */
        BURST,  /**< as fast as the sender's library takes them */
    };

    Pace pace = Pace::WINDOW;
    std::chrono::milliseconds time{0}; // WINDOW, PACED
    std::uint64_t count = 0;           // BURST; WINDOW: ends with it if it is not 0
};

/** The processes of the two roads; those that a side does not have cost nothing there. */
enum Part : std::size_t { SENDER, EVENT_SERVICE, SERVICE, BROKER, SUBSCRIBER, PARTS };

/** What one measurement gave. */
struct Figures {
    bool lossless = false; // everything arrived, once and in order
    std::uint64_t received = 0;
    double rate = 0;                 // arrivals a second
    double median = 0;               // latency, microseconds
    double p99 = 0;                  // latency, microseconds
    std::array<double, PARTS> cpu{}; // seconds per 100,000 messages
};

/** Runs one sender and one subscriber. `sample` is what the direct side publishes. */
Figures measure(const Services &services, Side side, int qos, const Plan &plan,
                const Sample &sample);

/** A message as the service publishes it with this QoS. */
Sample takeSample(const Services &services, int qos);

/** The longest burst of `most` or less of which nothing is lost, within a tenth. */
std::uint64_t longestBurst(const Services &services, Side side, int qos, std::uint64_t most,
                           const Sample &sample);

} // namespace end_to_end
