#include "mqtt/wake_fd.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace norq::mqtt {

WakeFd::WakeFd() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!descriptor) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void WakeFd::signal() noexcept
{
    if (!pending.exchange(true)) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(fd(), &one, sizeof one);
    }
}

void WakeFd::drain() noexcept
{
    std::uint64_t value = 0;
    [[maybe_unused]] const auto count = read(fd(), &value, sizeof value);
    pending.exchange(false);
}

} // namespace norq::mqtt
