/** What the processes of one measurement share. */
#pragma once

#include <semaphore.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace end_to_end {

/** Messages that are sent for one credit. */
inline constexpr std::uint64_t MESSAGES_PER_CREDIT = 64;
/** Credits at the start: so many times MESSAGES_PER_CREDIT are under way at most. */
inline constexpr unsigned CREDITS = 12;
/** Numbers begin here, so that every payload has the same length. */
inline constexpr std::uint64_t FIRST_NUMBER = 1'000'000'000;

/** Nanoseconds of a clock that all processes share. */
inline std::int64_t now()
{
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

/** One topic and payload as they arrived. */
struct Sample {
    std::array<char, 256> topic;
    std::array<char, 1024> payload;
};

/** Lives in memory that forked processes share; made by SharedMemory. */
struct SharedState {
    static constexpr std::size_t MAX_TIMED = 65536;

    std::atomic<bool> subscribed;
    std::atomic<bool> senderReady;
    std::atomic<bool> finished; // by the sender: `sent` is final
    std::atomic<std::uint64_t> sent;
    std::atomic<std::uint64_t> received;
    /** Messages whose number is not the one after the last: something was lost or repeated. */
    std::atomic<std::uint64_t> gaps;
    std::atomic<std::int64_t> lastArrival;
    sem_t begin;   // lets the sender begin
    sem_t credits; // given by the subscriber, taken by a sender that keeps within the window
    Sample sample; // the first message
    std::array<std::atomic<std::int64_t>, MAX_TIMED> sentAt; // of each number, from FIRST_NUMBER
    std::array<std::int64_t, MAX_TIMED> latency;
};

/** A SharedState, all zeros. */
class SharedMemory {
public:
    SharedMemory();
    ~SharedMemory();
    SharedMemory(const SharedMemory &) = delete;
    SharedMemory &operator=(const SharedMemory &) = delete;

    SharedState *operator->() const { return state; }
    SharedState &operator*() const { return *state; }

private:
    SharedState *state;
};

} // namespace end_to_end
