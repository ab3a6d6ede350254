/** The processes of a measurement and what they cost. */
#pragma once

#include "shared_state.h"

#include <sys/types.h>

#include <functional>

namespace end_to_end {

/** CPU seconds that a process has used so far, all its threads together. */
double cpuSeconds(pid_t process);

/** Runs a function in a forked process, which ends with this object at the latest. */
class Role {
public:
    /** A function that throws ends its process with a line on standard error. */
    explicit Role(const std::function<void()> &function);
    ~Role();
    Role(const Role &) = delete;
    Role &operator=(const Role &) = delete;

    [[nodiscard]] pid_t pid() const { return process; }
    /** False once the function has ended. */
    [[nodiscard]] bool isRunning() const;

private:
    pid_t process;
};

/** Waits until nothing has arrived for a second, or everything has that was sent. */
void waitUntilQuiet(const SharedState &shared);

} // namespace end_to_end
