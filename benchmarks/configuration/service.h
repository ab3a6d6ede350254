/** The service under measurement, as a process of its own; the sandbox provides the rest. */
#pragma once

#include "support/child_process.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>

namespace configuration {

using Clock = std::chrono::steady_clock;

/** Runs the service with whatever its configuration folder holds. */
class Service {
public:
    /** Returns when it owns its name and answers. `bus` is used during this call only. */
    explicit Service(sd_bus *bus);

    [[nodiscard]] pid_t pid() const { return process->pid(); }

    /** Waits until nothing has been done for a while; gives when that began. */
    [[nodiscard]] Clock::time_point waitUntilAtRest() const;

private:
    std::unique_ptr<test_support::ChildProcess> process;
};

} // namespace configuration
