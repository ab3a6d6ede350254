/** Steps that must not be interrupted by a person. */
#pragma once

#include <csignal>

namespace tovrelctl {

/**
 * While it lives, SIGINT, SIGTERM and SIGHUP wait, so that what was taken out is put in again
 * before they end the tool.
 */
class HeldSignals {
public:
    HeldSignals()
    {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&held, number);
        }
        pthread_sigmask(SIG_BLOCK, &held, &before);
    }
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;
    ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before{};
};

} // namespace tovrelctl
