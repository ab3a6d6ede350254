#include "event_service_fixture.h"

#include "event/core/bus_handles.h"
#include "event/core/bus_names.h"

#include <stdexcept>

namespace event_test {

bool serviceIsOnBus()
{
    norq::event::Bus bus;
    if (sd_bus_open_system(norq::event::Out(bus)) < 0) {
        return false;
    }
    return sd_bus_get_name_creds(bus.get(), norq::event::BUS_NAME, 0, nullptr) >= 0;
}

std::unique_ptr<test_support::ChildProcess> startDaemon()
{
    auto daemon = std::make_unique<test_support::ChildProcess>(
        std::vector<std::string>{EVENTD_PATH}, std::vector<std::string>{"NORQ_LOG_STDERR=1"});
    if (!test_support::waitUntil([&] { return serviceIsOnBus() || !daemon->isRunning(); }) ||
        !daemon->isRunning()) {
        throw std::runtime_error("the daemon did not start: " + daemon->standardError());
    }
    return daemon;
}

int occurrences(const std::string &text, const std::string &part)
{
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

} // namespace event_test
