/**
 * The service's D-Bus side at one end of a pair of sockets, and a client that writes bytes at the
 * other. One thread has both: when nothing is left to do at either end, all has been answered.
 */
#pragma once

#include "core/dbus_handler.h"
#include "interfaces/sd_bus_handles.h"
#include "unit/api/fuzz_bridge.h"
#include "unit/core/fuzz_wire.h"

#include <glib.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tovrel::test {

/** At this object, a legacy method is called whatever the signature of the call. */
inline constexpr const char *UNCHECKED_PATH = "/unchecked";

/** Connected sockets with sd-bus at both ends. */
class BusPair {
public:
    BusPair();

    sd_bus *service() { return serviceEnd.get(); }
    sd_bus *client() { return clientEnd.get(); }

    /** Writes bytes at the client's end; gives what the client has when both ends are idle. */
    std::vector<BusMessage> exchange(std::string_view bytes);

private:
    using Bus = CHandle<sd_bus, sd_bus_close_unref>;

    void serve();

    Bus serviceEnd;
    Bus clientEnd;
};

/** What became of a call. */
struct CallResult {
    /** The reply or error; nothing for a call that expects none. */
    BusMessage reply;
    /** Whether an exception was carried to the main loop, where it would have ended the service. */
    bool endsService = false;
};

class FuzzedService {
public:
    FuzzedService();

    /**
     * Sends a call. Ends the process unless there is exactly one answer, or none where none is
     * expected, and unless an error has a text that is valid UTF-8.
     */
    CallResult call(const WireCall &call);

    /** What is left of a former input goes, and the defaults are saved. */
    void startAnew();

    KeepingBridge bridge;

private:
    bool takeCarriedException();

    BusPair buses;
    DbusHandler handler;
    CHandle<GMainLoop, g_main_loop_unref> loop{g_main_loop_new(nullptr, FALSE)};
    std::uint32_t serial = 0;
};

} // namespace tovrel::test
