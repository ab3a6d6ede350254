/**
 * The program's own main(), renamed, on faked libraries. Each test runs it in a child process to
 * its end, static destructors included, and reads what the child tells.
 */
#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_confutils.h"
#include "fakes/fake_dbh.h"
#include "fakes/fake_event.h"
#include "fakes/fake_event_consumer.h"
#include "fakes/fake_glib_sources.h"
#include "fakes/fake_mqtt.h"
#include "fakes/fake_sdbus.h"
#include "fakes/log_capture.h"
#include "mqtt/config_paths.h"

#include <norq/log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

int tovrelMain();

using namespace tovrel::test;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

void nq_log_syslog(const char *identity)
{
    recordCall(std::string("nq_log_syslog ") + identity);
}

namespace {

void print(const std::string &line)
{
    std::fputs((line + "\n").c_str(), stderr);
}

void printCalls()
{
    for (const auto &call : recordedCalls()) {
        print("<" + call + ">");
    }
    resetCalls();
}

/** Made before the program's bridge, so that the fakes are still there when the bridge goes. */
class Fakes {
public:
    Fakes()
    {
        reset();
        fakeConfutils();
        fakeLivingObjects();
    }

    Fakes(const Fakes &) = delete;
    Fakes &operator=(const Fakes &) = delete;

    ~Fakes()
    {
        if (mainHasRun) {
            print("after the bridge:");
            printCalls();
            print("clients left: " + std::to_string(fakeMqtt().livingHandles) +
                  ", producers left: " + std::to_string(fakeEvents().livingProducers) +
                  ", consumers left: " + std::to_string(fakeLivingObjects().consumers));
        }
    }

    static void reset()
    {
        resetCalls();
        FakeSdBus::instance().reset();
        FakeGlibSources::instance().reset();
        resetFakeMqtt();
        resetFakeEvents();
        resetFakeDbh();
    }

    bool mainHasRun = false;
};

[[gnu::init_priority(200)]] Fakes fakes;

/** Runs main(), then ends the process with its status as the C library would. */
[[noreturn]] void runMain()
{
    LogCapture log;
    const int status = tovrelMain();
    for (const auto &line : log.take()) {
        print(std::to_string(line.level) + " " + line.text);
    }
    printCalls();
    fakes.mainHasRun = true;
    std::exit(status); // NOLINT(concurrency-mt-unsafe): one thread
}

class MainDeathTest : public ::testing::Test {
protected:
    MainDeathTest() { Fakes::reset(); }

    FakeSdBus &bus = FakeSdBus::instance();
    FakeGlibSources &sources = FakeGlibSources::instance();
};

TEST_F(MainDeathTest, LogsEachStepAndEndsWithSuccessWhenTheLoopHasEnded)
{
    EXPECT_EXIT(runMain(), ExitedWithCode(0),
                HasSubstr("64 tovrel starting\n64 Created dbus handler\n64 Created event producer\n"
                          "64 Created consumer handler\n"));
}

TEST_F(MainDeathTest, SetsTheLoggerUpFirstAndCreatesTheBusConnectionNext)
{
    EXPECT_EXIT(runMain(), ExitedWithCode(0),
                AllOf(HasSubstr("<nq_log_syslog tovrel>\n<tovrel_v2_create_api>"),
                      HasSubstr("<g_main_loop_run>")));
}

TEST_F(MainDeathTest, CreatesTheCollaboratorsBeforeItRunsTheBridge)
{
    EXPECT_EXIT(runMain(), ExitedWithCode(0),
                AllOf(ContainsRegex("<sd_bus_request_name com.norq.Tovrel1 flags 0>\n"
                                    "<event_producer_new tovrel>\n<event_consumer_new Tovrel>\n"
                                    "(<confutils_sweep_temporary_files [^\n]*>\n)*"
                                    "<MQTTMsg_new2>\n<MQTTMsg_init 0>")));
}

TEST_F(MainDeathTest, EndsWithFailureWhenAConstructorThrows)
{
    bus.answer("sd_bus_default_system", -ECONNREFUSED);
    EXPECT_EXIT(runMain(), ExitedWithCode(1),
                AllOf(HasSubstr("64 tovrel starting\n256 Failed adding to open bus!\n256 Exception "
                                "when starting tovrel: Failed adding to open bus!, could not "
                                "start\n"),
                      Not(HasSubstr("Created"))));
}

TEST_F(MainDeathTest, EndsWithFailureWhenTheBridgeCannotBeStarted)
{
    bus.answer("sd_bus_attach_event", -EBUSY);
    EXPECT_EXIT(runMain(), ExitedWithCode(1),
                AllOf(HasSubstr("256 Exception when starting tovrel: Failed to attach to sd bus "
                                "event loop, error: Device or resource busy, could not start\n"),
                      Not(HasSubstr("<g_main_loop_run>"))));
}

TEST_F(MainDeathTest, EndsWithFailureWhenTheBusIsLost)
{
    sources.whileRunning = [this] { FakeSdBus::callHandler(bus.matched); };
    EXPECT_EXIT(runMain(), ExitedWithCode(1),
                HasSubstr("256 Lost the connection to the system bus\n256 Exception when starting "
                          "tovrel: Lost the connection to the system bus, could not start\n"));
}

/** Runs main() with a file of the former format whose items cannot be saved. */
[[noreturn]] void runMainWithFailingMigration()
{
    // Written here, in the child, because the folder goes with the process that makes it.
    writeFile(tovrel::legacySubscriptionsFile(), "a\n0\n0\n0\n");
    failCall("confutils_set_file_contents_with_sync_mode");
    runMain();
}

TEST_F(MainDeathTest, EndsWithFailureWhenMigratedItemsCannotBeSaved)
{
    EXPECT_EXIT(runMainWithFailingMigration(), ExitedWithCode(1),
                AllOf(HasSubstr("256 Could not save MQTT-to-event configurations to file: Failed "
                                "to write\n256 Exception when starting tovrel: Could not store "
                                "configuration, could not start\n"),
                      Not(HasSubstr("<g_main_loop_run>"))));
}

TEST_F(MainDeathTest, EndsWithSuccessWhenTheMqttClientCannotBeInitialised)
{
    failCall("MQTTMsg_init");
    EXPECT_EXIT(runMain(), ExitedWithCode(0),
                AllOf(HasSubstr("64 Created consumer handler\n256 Failed to init: 9\n"),
                      HasSubstr("after the bridge:\n<MQTTMsg_delete>\n"),
                      HasSubstr("clients left: 0, producers left: 0"),
                      Not(HasSubstr("<g_main_loop_run>"))));
}

TEST_F(MainDeathTest, EndsWithSuccessAfterTerminatingItself)
{
    sources.whileRunning = [this] {
        for (const auto &idle : sources.attached("idle")) {
            sources.dispatch(idle.id);
        }
        for (const auto &timeout : sources.attached("timeout")) {
            sources.dispatch(timeout.id);
        }
        FakeSdBus::callHandler(bus.released);
    };
    EXPECT_EXIT(runMain(), ExitedWithCode(0),
                AllOf(HasSubstr("64 Releasing DBus name\n64 Name released - quitting main loop\n"),
                      HasSubstr("<sd_bus_release_name_async com.norq.Tovrel1>\n<MQTTMsg_delete>\n"
                                "<g_main_loop_quit>"),
                      HasSubstr("after the bridge:\n<event_consumer_free>\n"
                                "<dbh_request_handler_free>\n<dbh_delete_api>\n"
                                "clients left: 0, producers left: 0, consumers left: 0")));
}

TEST_F(MainDeathTest, EndsWithSuccessWhenTheNameCannotBeReleased)
{
    bus.answer("sd_bus_release_name_async", -ENOTCONN);
    sources.whileRunning = [this] {
        for (const auto &timeout : sources.attached("timeout")) {
            sources.dispatch(timeout.id);
        }
    };
    EXPECT_EXIT(runMain(), ExitedWithCode(0),
                AllOf(HasSubstr("64 Releasing DBus name\n64 Could not release DBus name.\n"),
                      HasSubstr("<g_main_loop_quit>\n<MQTTMsg_delete>\n"),
                      Not(HasSubstr("Exception")),
                      HasSubstr("clients left: 0, producers left: 0")));
}

} // namespace
