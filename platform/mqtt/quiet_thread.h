/** Threads of a library inside somebody else's process. */
#pragma once

#include <csignal>
#include <thread>
#include <utility>

namespace norq::mqtt {

/** Starts a thread on which no signal of the process is ever delivered. */
template <typename Function>
std::thread startQuietThread(Function &&function)
{
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    struct Restore {
        const sigset_t &mask;
        ~Restore() { pthread_sigmask(SIG_SETMASK, &mask, nullptr); }
    } const restore{former};
    return std::thread(std::forward<Function>(function));
}

} // namespace norq::mqtt
