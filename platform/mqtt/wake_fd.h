/** An eventfd by which one thread wakes another that polls. */
#pragma once

#include "posix/file_descriptor.h"

#include <atomic>

namespace norq::mqtt {

/** Any thread may signal; one thread polls and drains. */
class WakeFd {
public:
    /** Throws std::system_error when the process has no more descriptors. */
    WakeFd();

    /** Descriptor to poll for POLLIN. */
    [[nodiscard]] int fd() const { return descriptor.get(); }
    /** Makes the descriptor readable; costs no system call when it was signalled already. */
    void signal() noexcept;
    /**
     * Makes it unreadable again. To be called before the shared state is looked at: what changes
     * afterwards signals anew.
     */
    void drain() noexcept;

private:
    FileDescriptor descriptor;
    std::atomic<bool> pending{false};
};

} // namespace norq::mqtt
