/** A real bus, a real GLib main loop and a client on another thread, for tests of the service. */
#pragma once

#include "fakes/log_capture.h"
#include "fakes/mock_event_bridge.h"
#include "interfaces/c_handles.h"
#include "interfaces/callback_barrier.h"
#include "support/private_bus.h"
#include "unit/core/bus_neighbour.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace tovrel::test {

inline constexpr guint DEADLINE_SECONDS = 20;

/** A main loop that ends after a deadline, with a failed test, if nothing else ends it. */
class RealLoop : public ::testing::Test {
protected:
    RealLoop()
    {
        g_timeout_add_seconds(
            DEADLINE_SECONDS,
            [](gpointer data) -> gboolean {
                ADD_FAILURE() << "the main loop was not quit in time";
                g_main_loop_quit(static_cast<GMainLoop *>(data));
                return G_SOURCE_REMOVE;
            },
            loop.get());
    }

    /** Runs the main loop while `client` runs on another thread, and until that has ended. */
    void runWhile(const std::function<void()> &client)
    {
        const std::jthread thread([this, &client] {
            client();
            g_idle_add(
                [](gpointer data) -> gboolean {
                    g_main_loop_quit(static_cast<GMainLoop *>(data));
                    return G_SOURCE_REMOVE;
                },
                loop.get());
        });
        runMainLoop(loop.get());
    }

    CHandle<GMainLoop, g_main_loop_unref> loop{g_main_loop_new(nullptr, FALSE)};
};

/**
 * A bus of the test's own. The default connection and the default loops belong to the process, so
 * each test needs a process of its own; that is how ctest runs them.
 */
class RealBusFixture : public RealLoop {
protected:
    /** A blocking client connection, to be used on the thread that opens it. */
    static CHandle<sd_bus, sd_bus_flush_close_unref> connect()
    {
        CHandle<sd_bus, sd_bus_flush_close_unref> client;
        checked(sd_bus_open_system(OutParameter(client)), "sd_bus_open_system");
        return client;
    }

    test_support::PrivateBus bus;
    ::testing::StrictMock<MockEventBridge> bridge;
    LogCapture log;
};

} // namespace tovrel::test
