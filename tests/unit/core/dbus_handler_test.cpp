#include "unit/core/dbus_fixture.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <memory>
#include <new>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

class DbusHandlerConstruction : public DbusFixture {
protected:
    std::string failure()
    {
        return thrownMessage([this] { const DbusHandler handler(&bridge); });
    }
};

TEST_F(DbusHandlerConstruction, OpensTheBusAddsBothTablesAndTakesTheName)
{
    const DbusHandler handler(&bridge);

    EXPECT_THAT(recordedCalls(),
                ElementsAre("tovrel_v2_create_api", "dbh_request_handler_new api",
                            "dbh_request_handler_add_api api", "sd_bus_default_system",
                            "sd_bus_add_object_vtable com.norq.Mirel.Backend1 /com/norq/Tovrel1",
                            "sd_bus_add_object_vtable com.norq.Tovrel1 /com/norq/Tovrel1",
                            "sd_bus_request_name com.norq.Tovrel1 flags 0"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DbusHandlerConstruction, GivesItselfToTheMethodsOfBothTables)
{
    DbusHandler handler(&bridge);

    ASSERT_EQ(bus.tables.size(), 2U);
    EXPECT_EQ(bus.tables[0].userData, &handler);
    EXPECT_EQ(bus.tables[1].userData, &handler);
}

std::vector<std::string> busCalls()
{
    return recordedCalls(
        {"sd_bus_default_system", "sd_bus_add_object_vtable", "sd_bus_request_name"});
}

/** What a table offers: "name in -> out", in its order. */
std::vector<std::string> methodsOf(const FakeSdBus::Table &table)
{
    std::vector<std::string> methods;
    EXPECT_EQ(table.entries[0].type, _SD_BUS_VTABLE_START);
    for (const auto *entry = table.entries + 1; entry->type != _SD_BUS_VTABLE_END; ++entry) {
        EXPECT_EQ(entry->type, _SD_BUS_VTABLE_METHOD);
        EXPECT_EQ(entry->flags, SD_BUS_VTABLE_UNPRIVILEGED);
        const auto &method = entry->x.method;
        methods.push_back(std::string(method.member) + " " + method.signature + " -> " +
                          method.result);
    }
    return methods;
}

TEST_F(DbusHandlerConstruction, OffersTheMethodsOfBothInterfacesToAnyClient)
{
    const DbusHandler handler(&bridge);

    ASSERT_EQ(bus.tables.size(), 2U);
    EXPECT_THAT(methodsOf(bus.tables[0]), ElementsAre("HandleRequest s -> s"));
    EXPECT_THAT(methodsOf(bus.tables[1]),
                ElementsAre("SetMQTTToEventConfig a(sbib) -> i", "GetMQTTToEventConfig  -> a(sbib)",
                            "SetEventToMQTTConfig ssbbba(ssi) -> i",
                            "GetEventToMQTTConfig  -> ssbbba(ssi)"));
}

TEST_F(DbusHandlerConstruction, ZeroesTheUnusedBytesOfBothTables)
{
    // Memory that was used before, as the heap gives it.
    alignas(DbusHandler) std::array<std::byte, sizeof(DbusHandler)> storage{};
    storage.fill(std::byte{0xA5});
    auto *const handler = new (storage.data()) DbusHandler(&bridge);

    ASSERT_EQ(bus.tables.size(), 2U);
    for (const auto &table : bus.tables) {
        const auto *last = table.entries;
        while (last->type != _SD_BUS_VTABLE_END) {
            ++last;
        }
        const auto *const start = reinterpret_cast<const std::byte *>(&table.entries[0].x);
        const auto *const end = reinterpret_cast<const std::byte *>(&last->x);
        const std::size_t size = sizeof(last->x);
        const auto isZero = [](std::byte byte) { return byte == std::byte{0}; };
        EXPECT_TRUE(std::all_of(start + sizeof(table.entries[0].x.start), start + size, isZero));
        EXPECT_TRUE(std::all_of(end, end + size, isZero));
    }
    std::destroy_at(handler);
}

TEST_F(DbusHandlerConstruction, ThrowsWhenTheBusCannotBeOpened)
{
    bus.answer("sd_bus_default_system", -ECONNREFUSED);

    EXPECT_EQ(failure(), "Failed adding to open bus!");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed adding to open bus!"}));
    EXPECT_THAT(busCalls(), ElementsAre("sd_bus_default_system"));
}

TEST_F(DbusHandlerConstruction, ThrowsWithoutALogLineWhenTheApiTableCannotBeAdded)
{
    bus.answer("sd_bus_add_object_vtable com.norq.Mirel.Backend1", -EEXIST);

    EXPECT_EQ(failure(), "Could not add Mirel DBus object");
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(busCalls().size(), 2U) << "nothing comes after the failure";
}

TEST_F(DbusHandlerConstruction, ThrowsWithTheReasonWhenTheLegacyTableCannotBeAdded)
{
    bus.answer("sd_bus_add_object_vtable com.norq.Tovrel1", -EINVAL);

    EXPECT_EQ(failure(), "Failed to add object to vtable: Invalid argument");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed adding to vtable"}));
    EXPECT_EQ(busCalls().size(), 3U) << "the name is not requested";
}

TEST_F(DbusHandlerConstruction, ThrowsWithTheReasonWhenTheNameIsTaken)
{
    bus.answer("sd_bus_request_name", -EEXIST);

    EXPECT_EQ(failure(), "Service name request failed: error: File exists");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Failed getting service name: error: File exists"}));
}

TEST_F(DbusHandlerConstruction, LeavesTheBusAloneWhenDestroyed)
{
    {
        DbusHandler handler(&bridge);
        handler.start();
        resetCalls();
    }
    EXPECT_THAT(recordedCalls(), ElementsAre("dbh_request_handler_free", "dbh_delete_api"));
    EXPECT_EQ(bus.loopReferences, 1);
}

class DbusHandlerStart : public DbusFixture {
protected:
    DbusHandlerStart() { resetCalls(); }

    std::string failure()
    {
        return thrownMessage([this] { handler.start(); });
    }

    DbusHandler handler{&bridge};
};

TEST_F(DbusHandlerStart, AttachesTheBusToTheDefaultLoopAndTheLoopToGlib)
{
    handler.start();

    EXPECT_THAT(recordedCalls(
                    {"sd_event_default", "sd_bus_attach_event", "sd_event_get_fd", "sd_event_ref"}),
                ElementsAre("sd_event_default", "sd_bus_attach_event default-loop priority 0",
                            "sd_event_get_fd", "sd_event_ref"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DbusHandlerStart, ThrowsWithTheReasonWithoutAnEventLoop)
{
    bus.answer("sd_event_default", -EMFILE);

    EXPECT_EQ(failure(), "Failed to setup event loop, error: Too many open files");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to setup event loop"}));
    EXPECT_THAT(recordedCalls({"sd_bus_attach_event", "sd_event_ref"}), IsEmpty());
}

TEST_F(DbusHandlerStart, ThrowsWithTheReasonWhenTheBusCannotBeAttached)
{
    bus.answer("sd_bus_attach_event", -EBUSY);

    EXPECT_EQ(failure(), "Failed to attach to sd bus event loop, error: Device or resource busy");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to attach"}));
    EXPECT_THAT(recordedCalls({"sd_event_ref"}), IsEmpty());
}

TEST_F(DbusHandlerStart, ThrowsWithTheReasonWhenTheConnectionCannotBeWatched)
{
    bus.answer("sd_bus_match_signal", -ENOMEM);

    EXPECT_EQ(failure(), "Failed to watch the bus connection, error: Cannot allocate memory");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to watch the bus connection"}));
    EXPECT_THAT(recordedCalls({"sd_event_ref"}), IsEmpty());
}

TEST_F(DbusHandlerStart, ThrowsWithTheReasonWhenTheLoopCannotBePolled)
{
    bus.answer("sd_event_get_fd", -ECHILD);

    EXPECT_EQ(failure(), "Failed to get event loop descriptor, error: No child processes");
    EXPECT_THAT(recordedCalls({"sd_event_ref"}), IsEmpty());
}

TEST_F(DbusHandlerStart, WatchesForTheEndOfItsConnection)
{
    handler.start();

    EXPECT_THAT(recordedCalls({"sd_bus_match_signal"}),
                ElementsAre("sd_bus_match_signal org.freedesktop.DBus.Local "
                            "/org/freedesktop/DBus/Local org.freedesktop.DBus.Local "
                            "Disconnected"));
}

TEST_F(DbusHandlerStart, CarriesTheLossOfTheBusToTheMainLoop)
{
    const CHandle<GMainLoop, g_main_loop_unref> loop(g_main_loop_new(nullptr, FALSE));
    handler.start();
    sources.whileRunning = [this] {
        EXPECT_EQ(FakeSdBus::callHandler(bus.matched), 0);
        g_main_context_iteration(nullptr, FALSE);
    };

    EXPECT_EQ(thrownMessage([&loop] { runMainLoop(loop.get()); }),
              "Lost the connection to the system bus");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Lost the connection to the system bus"}));
    EXPECT_THAT(sources.quitLoops, ElementsAre(loop.get()));
}

class DbusHandlerRelease : public DbusFixture {
protected:
    DbusHandlerRelease() { resetCalls(); }

    CHandle<GMainLoop, g_main_loop_unref> loop{g_main_loop_new(nullptr, FALSE)};
    DbusHandler handler{&bridge};
};

TEST_F(DbusHandlerRelease, StartsToReleaseTheNameUnderASigtermGuard)
{
    resetCalls();
    EXPECT_TRUE(handler.releaseNameAndQuit(loop.get()));

    EXPECT_THAT(recordedCalls(),
                ElementsAre("g_unix_signal_add 15", "sd_bus_release_name_async com.norq.Tovrel1"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Releasing DBus name"}));
    EXPECT_THAT(sources.quitLoops, IsEmpty());
    EXPECT_EQ(sources.attached("signal").size(), 1U);
}

TEST_F(DbusHandlerRelease, QuitsTheMainLoopWhenTheNameIsReleased)
{
    ASSERT_TRUE(handler.releaseNameAndQuit(loop.get()));
    log.take();

    EXPECT_EQ(FakeSdBus::callHandler(bus.released), 1);
    EXPECT_THAT(sources.quitLoops, ElementsAre(loop.get()));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Name released - quitting main loop"}));
}

TEST_F(DbusHandlerRelease, SwallowsASigtermOnce)
{
    ASSERT_TRUE(handler.releaseNameAndQuit(loop.get()));
    log.take();

    const auto guards = sources.attached("signal");
    ASSERT_EQ(guards.size(), 1U);
    EXPECT_EQ(sources.dispatch(guards[0].id), G_SOURCE_REMOVE);
    EXPECT_THAT(sources.attached("signal"), IsEmpty());
    EXPECT_THAT(sources.quitLoops, IsEmpty());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DbusHandlerRelease, TakesTheGuardAwayWhenTheReleaseCannotStart)
{
    bus.answer("sd_bus_release_name_async", -ENOTCONN);

    EXPECT_FALSE(handler.releaseNameAndQuit(loop.get()));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Releasing DBus name"},
                                        LogLine{64, "Could not release DBus name."}));
    EXPECT_EQ(sources.sources.size(), 1U);
    EXPECT_THAT(sources.attached("signal"), IsEmpty());
    EXPECT_THAT(sources.quitLoops, IsEmpty()) << "that is left to the caller";
}

} // namespace

} // namespace tovrel::test
