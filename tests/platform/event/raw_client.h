/** A client that speaks to the service by hand, rightly or wrongly. */
#pragma once

#include "event/client/service_calls.h"
#include "event/core/bus_handles.h"
#include "event/core/bus_names.h"
#include "support/wait_until.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>

namespace event_test {

/** A bus connection and the socket that the service gave for it. */
class RawClient {
public:
    RawClient() { require(sd_bus_open_system(norq::event::Out(bus))); }

    /** Opens the client; an error name when the service refuses. */
    std::string open(const std::string &name = "raw")
    {
        norq::event::BusError error;
        norq::event::BusMessage answer;
        if (sd_bus_call_method(bus.get(), norq::event::BUS_NAME, norq::event::BUS_PATH,
                               norq::event::BUS_INTERFACE, "Open", error.out(),
                               norq::event::Out(answer), "s", name.c_str()) < 0) {
            return error.get()->name;
        }
        int lent = -1;
        require(sd_bus_message_read(answer.get(), "h", &lent));
        socket.reset(fcntl(lent, F_DUPFD_CLOEXEC, 3));
        return "";
    }

    /** Calls a method; an error name when the service refuses. */
    template <typename... Arguments>
    std::string call(const char *method, const char *types, Arguments... arguments)
    {
        norq::event::BusError error;
        const int result = sd_bus_call_method(bus.get(), norq::event::BUS_NAME,
                                              norq::event::BUS_PATH, norq::event::BUS_INTERFACE,
                                              method, error.out(), nullptr, types, arguments...);
        return result < 0 ? error.get()->name : "";
    }

    /** The calls of the library. */
    [[nodiscard]] norq::event::ServiceCalls calls() const
    {
        return {bus.get(), norq::event::BUS_NAME};
    }

    /** Writes all bytes; false when the service has closed the socket. */
    bool write(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t count = send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count > 0) {
                bytes.remove_prefix(static_cast<std::size_t>(count));
            } else if (errno != EAGAIN && errno != EINTR) {
                return false;
            }
        }
        return true;
    }

    /** Whether the service closes the socket, sooner or later. */
    bool isClosed()
    {
        return test_support::waitUntil([this] {
            char byte = 0;
            return recv(socket.get(), &byte, 1, MSG_DONTWAIT) == 0 || errno == ECONNRESET;
        });
    }

    norq::event::Bus bus;
    norq::event::Descriptor socket;

private:
    static void require(int result)
    {
        if (result < 0) {
            throw std::runtime_error("the bus cannot be used");
        }
    }
};

} // namespace event_test
