/** Another service on the bus of a test, on a thread and a connection of its own. */
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace tovrel::test {

/** Throws unless an sd-bus or sd-event call went well; gives its result. */
inline int checked(int result, const char *what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
    }
    return result;
}

/** Serves what `setUp` put on the connection until it is destroyed. */
class BusNeighbour {
public:
    /** `setUp` runs on the neighbour's thread; an exception of it comes out of the constructor. */
    explicit BusNeighbour(std::function<void(sd_bus *)> setUp)
    {
        std::promise<void> ready;
        std::future<void> isReady = ready.get_future();
        thread =
            std::jthread([setUp = std::move(setUp), ready = std::move(ready)](
                             const std::stop_token &stop) mutable { serve(stop, setUp, ready); });
        isReady.get();
    }

private:
    static void serve(const std::stop_token &stop, const std::function<void(sd_bus *)> &setUp,
                      std::promise<void> &ready)
    {
        sd_bus *bus = nullptr;
        try {
            checked(sd_bus_open_system(&bus), "sd_bus_open_system");
            setUp(bus);
            ready.set_value();
        } catch (...) {
            sd_bus_unref(bus);
            ready.set_exception(std::current_exception());
            return;
        }
        constexpr uint64_t TURN_MICROSECONDS = 20'000;
        while (!stop.stop_requested() && sd_bus_process(bus, nullptr) >= 0) {
            sd_bus_wait(bus, TURN_MICROSECONDS);
        }
        sd_bus_flush_close_unref(bus);
    }

    std::jthread thread;
};

} // namespace tovrel::test
