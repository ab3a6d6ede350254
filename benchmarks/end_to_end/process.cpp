#include "process.h"
#include "shared_state.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace end_to_end {

SharedMemory::SharedMemory()
{
    void *const memory = mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    state = new (memory) SharedState{};
    sem_init(&state->begin, 1, 0);
    sem_init(&state->credits, 1, CREDITS);
}

SharedMemory::~SharedMemory()
{
    munmap(state, sizeof(SharedState));
}

double cpuSeconds(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("a process has ended before its time");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Role::Role(const std::function<void()> &function) : process(fork())
{
    if (process < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (process > 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
        function();
        _exit(0);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        _exit(1);
    }
}

Role::~Role()
{
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

bool Role::isRunning() const
{
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

void waitUntilQuiet(const SharedState &shared)
{
    constexpr std::chrono::milliseconds STEP{5};
    constexpr int QUIET_STEPS = 200;
    std::uint64_t before = shared.received;
    for (int quiet = 0; quiet < QUIET_STEPS; ++quiet) {
        if (shared.finished && shared.received >= shared.sent) {
            return;
        }
        std::this_thread::sleep_for(STEP);
        const std::uint64_t received = shared.received;
        if (received != before) {
            quiet = 0;
        }
        before = received;
    }
}

} // namespace end_to_end
