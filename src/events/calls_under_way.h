/** Lets the one who takes something away wait for the calls that still use it. */
#pragma once

#include <condition_variable>
#include <mutex>

namespace tovrel {

/** Counts calls. The mutex of the object that hands out what the calls use guards the count. */
class CallsUnderWay {
public:
    /** One call, counted for as long as this lives. */
    class Call {
    public:
        /** `guard` guards `calls` and is held. It must not be held any more at the end. */
        Call(CallsUnderWay &calls, std::mutex &guard) : counter(calls), mutex(guard)
        {
            ++counter.count;
        }
        ~Call()
        {
            const std::lock_guard lock(mutex);
            --counter.count;
            counter.idle.notify_all();
        }
        Call(const Call &) = delete;
        Call &operator=(const Call &) = delete;

    private:
        CallsUnderWay &counter;
        std::mutex &mutex;
    };

    /** Returns when no call is under way. `lock` holds the guarding mutex. Not from a call. */
    void waitForAll(std::unique_lock<std::mutex> &lock)
    {
        idle.wait(lock, [this] { return count == 0; });
    }

private:
    unsigned int count = 0;
    std::condition_variable idle;
};

} // namespace tovrel
