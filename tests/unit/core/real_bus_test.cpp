/**
 * The D-Bus handler on a real bus, real sd-bus and a real GLib main loop. The default connection
 * and the default loops belong to the process, so each test needs a process of its own; that is how
 * ctest runs them.
 */
#include "core/dbus_handler.h"
#include "core/sd_event_source.h"
#include "interfaces/c_handles.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/exceptions.h"
#include "interfaces/sd_bus_handles.h"
#include "support/wait_until.h"
#include "unit/core/bus_neighbour.h"
#include "unit/core/real_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <string>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

using EventSource = CHandle<sd_event_source, sd_event_source_unref>;

class SdEventUnderGlib : public RealLoop {
protected:
    SdEventUnderGlib()
    {
        checked(sd_event_new(OutParameter(event)), "sd_event_new");
        attachSdEventSource(event.get());
    }

    void quitAfter(uint64_t microseconds)
    {
        checked(sd_event_add_time_relative(
                    event.get(), OutParameter(timer), CLOCK_MONOTONIC, microseconds, 0,
                    [](sd_event_source *, uint64_t, void *data) {
                        g_main_loop_quit(static_cast<GMainLoop *>(data));
                        return 0;
                    },
                    loop.get()),
                "sd_event_add_time_relative");
    }

    CHandle<sd_event, sd_event_unref> event;
    EventSource timer;
};

TEST_F(SdEventUnderGlib, RunsTimersThroughTheDescriptorAlone)
{
    quitAfter(1000);
    g_main_loop_run(loop.get());
    EXPECT_EQ(sd_event_get_state(event.get()), SD_EVENT_INITIAL);
}

TEST_F(SdEventUnderGlib, IsServedBesideABusySourceOfHigherPriority)
{
    // The check of the lower source is left out whenever this one is ready, that is half the time.
    int turns = 0;
    const guint busy = g_timeout_add_full(
        G_PRIORITY_HIGH, 0,
        [](gpointer count) -> gboolean {
            const int turn = ++*static_cast<int *>(count);
            return turn < 1000 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
        },
        &turns, nullptr);
    quitAfter(1);
    g_main_loop_run(loop.get());
    EXPECT_GE(turns, 1);
    if (turns < 1000) {
        g_source_remove(busy);
    }
}

TEST_F(SdEventUnderGlib, LetsGoOfTheLoopWhenSdEventHasEnded)
{
    bool gone = false;
    EventSource exitSource;
    checked(sd_event_add_exit(
                event.get(), OutParameter(exitSource), [](sd_event_source *, void *) { return 0; },
                &gone),
            "sd_event_add_exit");
    checked(sd_event_source_set_floating(exitSource.get(), 1), "sd_event_source_set_floating");
    checked(sd_event_source_set_destroy_callback(
                exitSource.get(), [](void *flag) { *static_cast<bool *>(flag) = true; }),
            "sd_event_source_set_destroy_callback");
    exitSource.reset();
    checked(sd_event_exit(event.get(), 0), "sd_event_exit");
    event.reset();

    EXPECT_TRUE(test_support::waitUntil([&gone] {
        g_main_context_iteration(nullptr, FALSE);
        return gone;
    })) << "the GLib source held the last reference";
}

/** What a client sees of the service. */
class RealBus : public RealBusFixture {
protected:
    static std::string introspect()
    {
        const auto client = connect();
        BusError error;
        BusMessage reply;
        const char *xml = nullptr;
        checked(sd_bus_call_method(client.get(), "com.norq.Tovrel1", "/com/norq/Tovrel1",
                                   "org.freedesktop.DBus.Introspectable", "Introspect",
                                   error.slot(), OutParameter(reply), nullptr),
                "Introspect");
        checked(sd_bus_message_read(reply.get(), "s", &xml), "reading the description");
        return xml;
    }

    /** The name of the error that a call of a method of the legacy interface is answered with. */
    static std::string errorOf(const char *method)
    {
        const auto client = connect();
        sd_bus_error error = {};
        const int result = sd_bus_call_method(client.get(), "com.norq.Tovrel1", "/com/norq/Tovrel1",
                                              "com.norq.Tovrel1", method, &error, nullptr, nullptr);
        std::string name = result < 0 && error.name != nullptr ? error.name : "";
        sd_bus_error_free(&error);
        return name;
    }

    static bool isOwned(const char *name)
    {
        const auto client = connect();
        CHandle<sd_bus_creds, sd_bus_creds_unref> owner;
        return sd_bus_get_name_creds(client.get(), name, 0, OutParameter(owner)) >= 0;
    }
};

TEST_F(RealBus, ShowsTheObjectWithBothInterfacesUnderItsName)
{
    DbusHandler handler(&bridge);
    handler.start();
    std::string description;
    runWhile([&description] { description = introspect(); });

    EXPECT_THAT(description, HasSubstr("<interface name=\"com.norq.Tovrel1\">"));
    EXPECT_THAT(description, HasSubstr("<interface name=\"com.norq.Mirel.Backend1\">"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(RealBus, AnswersACallOfAMethodThatItDoesNotHave)
{
    DbusHandler handler(&bridge);
    handler.start();
    std::string error;
    runWhile([&error] { error = errorOf("GetConfig"); });

    EXPECT_EQ(error, "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST_F(RealBus, RefusesToBeTheSecondOwnerOfTheName)
{
    const BusNeighbour first(
        [](sd_bus *own) { checked(sd_bus_request_name(own, "com.norq.Tovrel1", 0), "name"); });

    EXPECT_THROW(const DbusHandler handler(&bridge), SdBusException);
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Failed getting service name: error: File exists"}));
}

TEST_F(RealBus, EndsTheLoopWhenTheNameIsReleasedAndSurvivesASigtermMeanwhile)
{
    DbusHandler handler(&bridge);
    handler.start();
    ASSERT_TRUE(isOwned("com.norq.Tovrel1"));

    ASSERT_TRUE(handler.releaseNameAndQuit(loop.get()));
    ASSERT_EQ(raise(SIGTERM), 0);
    runMainLoop(loop.get());

    EXPECT_FALSE(isOwned("com.norq.Tovrel1"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Releasing DBus name"},
                                        LogLine{64, "Name released - quitting main loop"}));
}

TEST_F(RealBus, EndsTheLoopWithAnExceptionWhenTheBusGoesAway)
{
    DbusHandler handler(&bridge);
    handler.start();
    g_idle_add(
        [](gpointer data) -> gboolean {
            static_cast<test_support::PrivateBus *>(data)->stop();
            return G_SOURCE_REMOVE;
        },
        &bus);

    EXPECT_THROW(runMainLoop(loop.get()), SdBusException);
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Lost the connection to the system bus"}));
}

TEST_F(RealBus, CannotStartToReleaseANameOnALostBus)
{
    DbusHandler handler(&bridge);
    handler.start();
    bus.stop();
    EXPECT_THROW(runMainLoop(loop.get()), SdBusException);
    log.take();

    EXPECT_FALSE(handler.releaseNameAndQuit(loop.get()));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Releasing DBus name"},
                                        LogLine{64, "Could not release DBus name."}));
}

TEST_F(RealBus, KnowsNoSerialNumberAndNoPrefixWithoutTheDevicesServices)
{
    DbusHandler handler(&bridge);

    EXPECT_EQ(handler.getSerialNumber(), "no_serial");
    EXPECT_EQ(handler.getDeviceTopicPrefix(), "");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].level, 256);
    EXPECT_THAT(lines[0].text, HasSubstr("failed to call method!: "));
    EXPECT_EQ(lines[1].level, 16);
    EXPECT_THAT(lines[1].text, HasSubstr("Could not retrieve Device Topic Prefix: The name "
                                         "com.norq.MQTTMessagingService1 was not provided"));
}

int giveSerialNumber(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply,
                     void *, sd_bus_error *)
{
    return sd_bus_message_append(reply, "s", "ACCC8E000000");
}

int giveStatus(sd_bus_message *call, void *, sd_bus_error *)
{
    return sd_bus_reply_method_return(call, "a{ss}", 3, "deviceTopicPrefix", "first", "status",
                                      "connected", "deviceTopicPrefix", "norq/second");
}

int giveSomethingElse(sd_bus_message *call, void *, sd_bus_error *)
{
    return sd_bus_reply_method_return(call, "s", "deviceTopicPrefix");
}

const sd_bus_vtable INFORMATION[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("SerialNumber", "s", giveSerialNumber, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable MESSAGING[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetDefaultStatus", "", "a{ss}", giveStatus, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable ODD_MESSAGING[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetDefaultStatus", "", "s", giveSomethingElse, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

/** Puts one interface under a service's name. */
std::function<void(sd_bus *)> service(const char *name, const char *path, const char *interface,
                                      const sd_bus_vtable *table)
{
    return [=](sd_bus *own) {
        checked(sd_bus_add_object_vtable(own, nullptr, path, interface, table, nullptr), interface);
        checked(sd_bus_request_name(own, name, 0), name);
    };
}

TEST_F(RealBus, ReadsTheSerialNumberOfTheDeviceInformationService)
{
    const BusNeighbour neighbour(service("com.norq.BasicDeviceInfo1", "/com/norq/BasicDeviceInfo1",
                                         "com.norq.Configuration.Legacy", INFORMATION));
    DbusHandler handler(&bridge);

    EXPECT_EQ(handler.getSerialNumber(), "ACCC8E000000");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(RealBus, ReadsTheLastDeviceTopicPrefixOfTheMessagingService)
{
    const BusNeighbour neighbour(service("com.norq.MQTTMessagingService1",
                                         "/com/norq/MQTTMessagingService1",
                                         "com.norq.MQTTMessagingService1", MESSAGING));
    DbusHandler handler(&bridge);

    EXPECT_EQ(handler.getDeviceTopicPrefix(), "norq/second");
    EXPECT_EQ(handler.getDeviceTopicPrefix(), "norq/second") << "every lookup asks again";
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(RealBus, FindsNoPrefixInAReplyOfAnotherType)
{
    const BusNeighbour neighbour(service("com.norq.MQTTMessagingService1",
                                         "/com/norq/MQTTMessagingService1",
                                         "com.norq.MQTTMessagingService1", ODD_MESSAGING));
    DbusHandler handler(&bridge);

    EXPECT_EQ(handler.getDeviceTopicPrefix(), "");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, 256);
    EXPECT_THAT(lines[0].text, HasSubstr("Failed to open DBus array: "));
}

} // namespace

} // namespace tovrel::test
