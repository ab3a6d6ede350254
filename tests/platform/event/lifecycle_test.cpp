/** Clients, the daemon and the bus coming and going. */
#include "event/core/bus_handles.h"
#include "event/core/bus_names.h"
#include "event_handles.h"
#include "event_service_fixture.h"
#include "recorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace event_test {
namespace {

using test_support::ChildProcess;
using test_support::waitUntil;

/** Sends until the service takes it: it takes a moment until the library has found it again. */
bool sendOnceBack(event_producer_t *producer, int id, std::int64_t number)
{
    return waitUntil([&] { return sendNumber(producer, id, number); });
}

/** Process that has the service's name; -1 when nobody has. */
pid_t servicePid()
{
    norq::event::Bus connection;
    if (sd_bus_open_system(norq::event::Out(connection)) < 0) {
        return -1;
    }
    pid_t pid = -1;
    sd_bus_creds *credentials = nullptr;
    if (sd_bus_get_name_creds(connection.get(), norq::event::BUS_NAME, SD_BUS_CREDS_PID,
                              &credentials) >= 0) {
        sd_bus_creds_get_pid(credentials, &pid);
        sd_bus_creds_unref(credentials);
    }
    return pid;
}

using Lifecycle = EventServiceTest;

TEST_F(Lifecycle, AClientThatDiesTakesItsDeclarationsAndSubscriptionsAlong)
{
    ChildProcess victim({CLIENT_PROCESS_PATH});
    ASSERT_TRUE(waitUntil([&] { return victim.standardOutput() == "ready\n"; }));
    const ConsumerPtr before = newConsumer();
    Recorder seenBefore;
    seenBefore.subscribe(before.get());
    ASSERT_TRUE(seenBefore.waitFor(1));
    EXPECT_EQ(seenBefore.all().front(), (Received{"Victim", 1, true}));

    victim.kill();
    ASSERT_TRUE(waitUntil([] {
        const ConsumerPtr after = newConsumer();
        Recorder seen;
        seen.subscribe(after.get());
        const ProducerPtr producer = newProducer();
        const int id = event_producer_declare(producer.get(), numberDeclaration("Mark").get());
        return sendNumber(producer.get(), id, 5) && seen.waitForNumber(5) && seen.count() == 1;
    }));
}

TEST_F(Lifecycle, WhenTheDaemonComesBackEverythingIsDeclaredAndSubscribedAgain)
{
    const ConsumerPtr consumer = newConsumer("faithful consumer");
    Recorder numbers;
    Recorder properties;
    numbers.subscribe(consumer.get(), whereValue("topic0", "N"));
    properties.subscribe(consumer.get(), whereValue("topic0", "P"));
    const ProducerPtr producer = newProducer("faithful producer");
    const int number = event_producer_declare(producer.get(), numberDeclaration("N").get());
    const int gone = event_producer_declare(producer.get(), numberDeclaration("N").get());
    const int property = event_producer_declare(producer.get(), propertyDeclaration("P").get());
    event_producer_undeclare(producer.get(), gone);
    ASSERT_TRUE(sendNumber(producer.get(), number, 1));
    ASSERT_TRUE(sendNumber(producer.get(), property, 2));
    ASSERT_TRUE(numbers.waitForNumber(1));
    ASSERT_TRUE(properties.waitForNumber(2));

    for (int round = 1; round <= 3; ++round) {
        crashDaemon();
        ASSERT_TRUE(waitUntil([&] {
            return logs.count(G_LOG_LEVEL_WARNING, "'faithful producer' lost") == round &&
                   logs.count(G_LOG_LEVEL_WARNING, "'faithful consumer' lost") == round;
        }));
        ErrorSlot error;
        ASSERT_TRUE(waitUntil([&] { return !sendNumber(producer.get(), number, 0, error.out()); }));
        EXPECT_EQ(error.code(), EVENT_ERROR_UNAVAILABLE);
        restartDaemon();
        ASSERT_TRUE(waitUntil([&] {
            return logs.count(G_LOG_LEVEL_INFO, "again for client 'faithful producer'") == round &&
                   logs.count(G_LOG_LEVEL_INFO, "again for client 'faithful consumer'") == round;
        }));
        ASSERT_TRUE(sendOnceBack(producer.get(), number, 10 + round));
        ASSERT_TRUE(numbers.waitForNumber(10 + round));
        EXPECT_EQ(numbers.count(), 1U + static_cast<std::size_t>(round));
        // the kept value once for each return, as to a new subscription
        ASSERT_TRUE(properties.waitFor(1U + static_cast<std::size_t>(round)));
        EXPECT_EQ(properties.all().back(), (Received{"P", 2, true}));
        EXPECT_EQ(properties.count(), 1U + static_cast<std::size_t>(round));
    }
    ASSERT_TRUE(sendNumber(producer.get(), property, 3));
    ASSERT_TRUE(properties.waitForNumber(3));
    EXPECT_EQ(event_producer_prepare_event(producer.get(), gone, 0, nullptr), nullptr);
    EXPECT_EQ(logs.count(256, ""), 0);
}

TEST_F(Lifecycle, AServiceThatIsAbsentAtTheStartIsJoinedWhenItComes)
{
    crashDaemon();
    const ConsumerPtr consumer = newConsumer("early consumer");
    const ProducerPtr producer = newProducer("early producer");
    ASSERT_TRUE(consumer);
    ASSERT_TRUE(producer);
    Recorder recorder;
    const int subscription = recorder.subscribe(consumer.get());
    EXPECT_GE(subscription, 0);
    Recorder given;
    const int givenUp = given.subscribe(consumer.get());
    EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), givenUp, 0));
    const int id = event_producer_declare(producer.get(), numberDeclaration("N").get());
    EXPECT_GE(id, 0);
    ErrorSlot error;
    EXPECT_FALSE(sendNumber(producer.get(), id, 1, error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNAVAILABLE);
    EXPECT_TRUE(waitUntil(
        [&] { return logs.count(G_LOG_LEVEL_INFO, "waits for the event service") == 2; }));

    restartDaemon();
    ASSERT_TRUE(waitUntil([&] {
        return logs.count(G_LOG_LEVEL_INFO, "there again for client 'early consumer'") == 1;
    }));
    ASSERT_TRUE(sendOnceBack(producer.get(), id, 2));
    ASSERT_TRUE(recorder.waitForNumber(2));
    EXPECT_EQ(recorder.count(), 1U);
    EXPECT_EQ(given.count(), 0U);
    EXPECT_EQ(logs.count(G_LOG_LEVEL_WARNING, ""), 0);
}

TEST_F(Lifecycle, WhenTheBusIsReplacedClientsAndServiceFindEachOtherAgain)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    const ProducerPtr producer = newProducer();
    const int id = event_producer_declare(producer.get(), propertyDeclaration().get());
    ASSERT_TRUE(sendNumber(producer.get(), id, 1));
    ASSERT_TRUE(recorder.waitForNumber(1));

    bus.stop();
    EXPECT_EQ(daemon->waitForExit(test_support::DEADLINE), 1); // to be started again
    ASSERT_TRUE(waitUntil([&] { return logs.count(G_LOG_LEVEL_WARNING, "lost the event") == 2; }));
    bus.start();
    restartDaemon();
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_TRUE(recorder.all()[1].initial);
    ASSERT_TRUE(sendOnceBack(producer.get(), id, 3));
    ASSERT_TRUE(recorder.waitForNumber(3));
}

TEST_F(Lifecycle, WithoutABusClientsCanBeMadeUsedAndFreed)
{
    bus.stop();
    daemon->waitForExit(test_support::DEADLINE);
    {
        const ConsumerPtr consumer = newConsumer();
        const ProducerPtr producer = newProducer();
        Recorder recorder;
        EXPECT_GE(recorder.subscribe(consumer.get()), 0);
        const int id = event_producer_declare(producer.get(), numberDeclaration().get());
        EXPECT_GE(id, 0);
        EXPECT_FALSE(sendNumber(producer.get(), id, 1));
        EXPECT_TRUE(event_producer_undeclare(producer.get(), id));
    }
    bus.start();
    restartDaemon();
}

TEST_F(Lifecycle, ASecondDaemonRefusesToStart)
{
    ChildProcess second({EVENTD_PATH}, {"NORQ_LOG_STDERR=1"});
    EXPECT_EQ(second.waitForExit(test_support::DEADLINE), 1);
    EXPECT_NE(second.standardError().find("taking the bus name"), std::string::npos);
    EXPECT_TRUE(serviceIsOnBus());
}

TEST(Activation, TheBusStartsTheServiceForItsFirstClientAndAgainAfterACrash)
{
    const test_support::TempDirectory services;
    std::ofstream(services.file("com.norq.EventService1.service"))
        << "[D-BUS Service]\nName=com.norq.EventService1\nExec=" << EVENTD_PATH << "\n";
    const test_support::LogCapture logs;
    const test_support::PrivateBus bus({services.path()});
    ASSERT_FALSE(serviceIsOnBus());
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    ASSERT_GE(recorder.subscribe(consumer.get()), 0);
    const ProducerPtr producer = newProducer();
    const int id = event_producer_declare(producer.get(), numberDeclaration().get());
    ASSERT_TRUE(sendOnceBack(producer.get(), id, 1));
    ASSERT_TRUE(recorder.waitForNumber(1));

    const pid_t first = servicePid();
    ASSERT_GT(first, 0);
    kill(first, SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return servicePid() > 0 && servicePid() != first; }));
    ASSERT_TRUE(
        waitUntil([&] { return sendNumber(producer.get(), id, 2) && recorder.count() > 1; }));
    // the service ends with the bus
}

std::string lineOf(const std::filesystem::path &file, const std::string &start)
{
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(start)) {
            return line.substr(start.size());
        }
    }
    return "";
}

/**
 * How often the main thread and those of the event library have gone to sleep so far. A sanitizer's
 * own thread does not count.
 */
long sleepsOf(pid_t process)
{
    long sleeps = 0;
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        if (task.path().filename() == std::to_string(process) ||
            lineOf(task.path() / "comm", "") == "norq-event") {
            sleeps += std::stol(lineOf(task.path() / "status", "voluntary_ctxt_switches:"));
        }
    }
    return sleeps;
}

TEST_F(Lifecycle, ServiceAndClientsSleepWhileNothingHappens)
{
    ChildProcess client({CLIENT_PROCESS_PATH});
    ASSERT_TRUE(waitUntil([&] { return client.standardOutput() == "ready\n"; }));
    const auto sleeps = [&] { return sleepsOf(daemon->pid()) + sleepsOf(client.pid()); };
    // what the start has set in motion may take a moment; then a whole second must be still
    EXPECT_TRUE(waitUntil([&] {
        const long before = sleeps();
        return !waitUntil([&] { return sleeps() != before; }, std::chrono::seconds(1));
    }));
}

TEST_F(Lifecycle, ManyClientsAtOnceEachGetTheirOwn)
{
    std::vector<ConsumerPtr> consumers;
    std::vector<std::unique_ptr<Recorder>> recorders;
    for (int index = 0; index < 40; ++index) {
        consumers.push_back(newConsumer());
        recorders.push_back(std::make_unique<Recorder>());
        ASSERT_GE(recorders.back()->subscribe(consumers.back().get(),
                                              whereValue("number", std::to_string(index).c_str())),
                  0);
    }
    const ProducerPtr producer = newProducer();
    const int id = event_producer_declare(producer.get(), numberDeclaration().get());
    for (int index = 0; index < 40; ++index) {
        ASSERT_TRUE(sendNumber(producer.get(), id, index));
    }
    for (int index = 0; index < 40; ++index) {
        ASSERT_TRUE(recorders[static_cast<std::size_t>(index)]->waitFor(1));
        EXPECT_EQ(recorders[static_cast<std::size_t>(index)]->numbers(),
                  (std::vector<std::int64_t>{index}));
    }
}

} // namespace
} // namespace event_test
