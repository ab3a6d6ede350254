/** What tests of the D-Bus handler share: a faked bus, faked GLib sources, the log. */
#pragma once

#include "core/dbus_handler.h"
#include "fakes/call_record.h"
#include "fakes/fake_glib_sources.h"
#include "fakes/fake_sdbus.h"
#include "fakes/log_capture.h"
#include "fakes/mock_event_bridge.h"
#include "interfaces/c_handles.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace tovrel::test {

/** The message of the SdBusException that `action` throws, or what happened instead. */
template <typename Action>
std::string thrownMessage(Action action)
{
    try {
        action();
    } catch (const SdBusException &error) {
        return error.what();
    } catch (const std::exception &error) {
        return std::string("(another exception) ") + error.what();
    }
    return "(no exception)";
}

class DbusFixture : public ::testing::Test {
protected:
    DbusFixture()
    {
        resetCalls();
        bus.reset();
        sources.reset();
    }

    FakeSdBus &bus = FakeSdBus::instance();
    FakeGlibSources &sources = FakeGlibSources::instance();
    ::testing::StrictMock<MockEventBridge> bridge;
    LogCapture log;
};

} // namespace tovrel::test
