/** Start-up, self-termination and end of the bridge, with time in the hands of the test. */
#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_glib_sources.h"
#include "fakes/fake_mqtt.h"
#include "fakes/log_capture.h"
#include "fakes/mock_dbus_handler.h"
#include "fakes/mock_event_consumer_handler.h"
#include "fakes/mock_event_producer_handler.h"
#include "interfaces/callback_barrier.h"
#include "mqtt/config_paths.h"
#include "mqtt/event_bridge.h"
#include "support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::Throw;

namespace tovrel::test {

namespace {

/** Leaves a trace in the list of calls when it is destroyed. */
template <typename Mock>
class Traced : public NiceMock<Mock> {
public:
    explicit Traced(std::string ownName) : name(std::move(ownName)) {}
    ~Traced() override { recordCall("destroy " + name); }

private:
    std::string name;
};

class BridgeLifecycle : public ::testing::Test {
protected:
    BridgeLifecycle()
    {
        resetCalls();
        resetFakeMqtt();
        sources.reset();
        emptyConfigFolder();
        auto dbusMock = std::make_unique<Traced<MockDbusHandler>>("dbus");
        auto producerMock = std::make_unique<Traced<MockEventProducerHandler>>("producer");
        auto consumerMock = std::make_unique<Traced<MockEventConsumerHandler>>("consumer");
        dbus = dbusMock.get();
        producer = producerMock.get();
        consumer = consumerMock.get();
        dbusHolder = std::move(dbusMock);
        producerHolder = std::move(producerMock);
        consumerHolder = std::move(consumerMock);
        traceMocks();
    }

    void traceMocks()
    {
        ON_CALL(*dbus, getSerialNumber).WillByDefault([] {
            recordCall("dbus getSerialNumber");
            return "SERIAL";
        });
        ON_CALL(*dbus, start).WillByDefault([] { recordCall("dbus start"); });
        ON_CALL(*dbus, releaseNameAndQuit).WillByDefault([this](GMainLoop *loop) {
            recordCall("dbus releaseNameAndQuit");
            releaseLoop = loop;
            return releaseStarts;
        });
        ON_CALL(*consumer, start).WillByDefault([](const std::string &serialNumber) {
            recordCall("consumer start " + serialNumber);
        });
        ON_CALL(*consumer, eventFilterCount).WillByDefault([this] { return filterCount; });
        ON_CALL(*producer, start).WillByDefault([] { recordCall("producer start"); });
        ON_CALL(*producer, declareStatelessEvent)
            .WillByDefault([](const std::string &topicFilter, bool) {
                recordCall("producer declareStatelessEvent " + topicFilter);
            });
    }

    void run() { bridge->run(dbusHolder, producerHolder, consumerHolder); }

    /** Runs the bridge; `action` happens while its main loop runs. */
    void runAndThen(std::function<void()> action)
    {
        sources.whileRunning = std::move(action);
        run();
        EXPECT_EQ(sources.runLoops.size(), 1U);
    }

    void addSubscription() { bridge->getSubscriptions().addSubscription("a/b", false, 1, false); }

    std::vector<FakeGlibSources::Source> timeouts() const { return sources.attached("timeout"); }

    FakeGlibSources &sources = FakeGlibSources::instance();
    LogCapture log;
    MockDbusHandler *dbus;
    MockEventProducerHandler *producer;
    MockEventConsumerHandler *consumer;
    std::unique_ptr<BaseDbusHandler> dbusHolder;
    std::unique_ptr<BaseEventProducerHandler> producerHolder;
    std::unique_ptr<BaseEventConsumerHandler> consumerHolder;
    std::size_t filterCount = 0;
    bool releaseStarts = true;
    GMainLoop *releaseLoop = nullptr;
    std::unique_ptr<EventBridge> bridge = std::make_unique<EventBridge>();
};

TEST_F(BridgeLifecycle, StartsEverythingInOrderAndRunsTheLoop)
{
    writeFile(subscriptionsFile(), "0\na/b\n0\n1\n0\n");
    run();

    EXPECT_THAT(recordedCalls(),
                ElementsAre("MQTTMsg_new2", "MQTTMsg_init 0", "dbus getSerialNumber",
                            "consumer start SERIAL",
                            std::string("confutils_sweep_temporary_files ") + subscriptionsFile(),
                            "producer declareStatelessEvent a/b", "producer start", "dbus start",
                            "g_idle_add", "g_main_loop_run"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BridgeLifecycle, TakesTheCollaboratorsOver)
{
    run();

    EXPECT_EQ(dbusHolder, nullptr);
    EXPECT_EQ(producerHolder, nullptr);
    EXPECT_EQ(consumerHolder, nullptr);
}

TEST_F(BridgeLifecycle, RunsALoopOfTheDefaultContext)
{
    run();

    ASSERT_EQ(sources.runLoops.size(), 1U);
    EXPECT_EQ(g_main_loop_get_context(sources.runLoops[0]), g_main_context_default());
}

TEST_F(BridgeLifecycle, ReceivesTheMqttClientsMessages)
{
    EXPECT_CALL(*producer, sendStatelessEvent("a/b", true, ::testing::StrEq("hello")));
    addSubscription();
    runAndThen([] { fakeMqtt().deliver("a/b", true, "hello"); });
}

TEST_F(BridgeLifecycle, ReturnsWithNothingTakenOverWhenTheMqttClientCannotBeInitialised)
{
    failCall("MQTTMsg_init");
    fakeMqtt().failureResult = 7;
    run();

    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to init: 7"}));
    EXPECT_THAT(recordedCalls(), ElementsAre("MQTTMsg_new2", "MQTTMsg_init 0"));
    EXPECT_EQ(dbusHolder.get(), dbus);
    EXPECT_EQ(producerHolder.get(), producer);
    EXPECT_EQ(consumerHolder.get(), consumer);
}

TEST_F(BridgeLifecycle, ReportsAnMqttClientThatCannotBeCreatedAsFailedInitialisation)
{
    failCall("MQTTMsg_new2");
    run();

    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to init: 2"}));
    EXPECT_THAT(sources.runLoops, IsEmpty());
}

TEST_F(BridgeLifecycle, DeletesAnMqttClientThatCouldNotBeInitialised)
{
    failCall("MQTTMsg_init");
    run();
    bridge.reset();

    EXPECT_EQ(fakeMqtt().livingHandles, 0);
}

TEST_F(BridgeLifecycle, LetsAnExceptionOfStartUpThrough)
{
    EXPECT_CALL(*dbus, start).WillOnce(Throw(std::runtime_error("no bus")));

    EXPECT_THROW(run(), std::runtime_error);
    EXPECT_THAT(sources.runLoops, IsEmpty());
    EXPECT_THAT(recordedCalls({"g_idle_add"}), IsEmpty());
}

TEST_F(BridgeLifecycle, ThrowsWhatACallbackCarriedToTheLoop)
{
    // Declared when loaded, and again when the idle task sets the subscriptions up.
    EXPECT_CALL(*producer, declareStatefulEvent)
        .WillOnce(Return())
        .WillOnce(Throw(std::runtime_error("lost")));
    bridge->getSubscriptions().addSubscription("a/b", false, 1, true);
    sources.whileRunning = [this] {
        const auto idle = sources.attached("idle");
        ASSERT_EQ(idle.size(), 1U);
        EXPECT_EQ(sources.dispatch(idle[0].id), G_SOURCE_REMOVE);
        EXPECT_THAT(sources.quitLoops, ElementsAre(sources.runLoops.at(0)));
    };

    EXPECT_THROW(run(), std::runtime_error);
}

TEST_F(BridgeLifecycle, SubscribesTheStoredFiltersOnceWhenTheLoopIsIdle)
{
    addSubscription();
    runAndThen([this] {
        EXPECT_THAT(recordedCalls({"MQTTMsg_subscribe"}), IsEmpty());
        const auto idle = sources.attached("idle");
        ASSERT_EQ(idle.size(), 1U);
        EXPECT_EQ(sources.dispatch(idle[0].id), G_SOURCE_REMOVE);
    });

    EXPECT_THAT(recordedCalls({"MQTTMsg_subscribe"}), ElementsAre("MQTTMsg_subscribe a/b 1 0"));
}

TEST_F(BridgeLifecycle, RefusesToSetUpSubscriptionsWithoutABridge)
{
    runAndThen([this] {
        const auto idle = sources.attached("idle");
        ASSERT_EQ(idle.size(), 1U);
        EXPECT_EQ(idle[0].function(nullptr), G_SOURCE_REMOVE);
    });

    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Cannot setup subscriptions"}));
}

TEST_F(BridgeLifecycle, ArmsSelfTerminationBeforeTheLoopWhenNothingIsConfigured)
{
    run();

    EXPECT_THAT(recordedCalls({"g_idle_add", "g_timeout_add_seconds", "g_main_loop_run"}),
                ElementsAre("g_idle_add", "g_timeout_add_seconds 5", "g_main_loop_run"));
}

TEST_F(BridgeLifecycle, ReleasesTheNameAndDeletesTheMqttClientWhenTheTimeIsUp)
{
    runAndThen([this] {
        ASSERT_EQ(timeouts().size(), 1U);
        EXPECT_EQ(sources.dispatch(timeouts()[0].id), G_SOURCE_REMOVE);
    });

    EXPECT_THAT(recordedCalls({"dbus releaseNameAndQuit", "MQTTMsg_delete", "g_main_loop_quit"}),
                ElementsAre("dbus releaseNameAndQuit", "MQTTMsg_delete"))
        << "the loop is left to the completion of the release";
    EXPECT_EQ(releaseLoop, sources.runLoops.at(0));
    EXPECT_EQ(fakeMqtt().livingHandles, 0);
}

TEST_F(BridgeLifecycle, QuitsTheLoopItselfWhenTheReleaseCannotStart)
{
    releaseStarts = false;
    runAndThen([this] { bridge->quit(); });

    EXPECT_THAT(recordedCalls({"dbus releaseNameAndQuit", "MQTTMsg_delete", "g_main_loop_quit"}),
                ElementsAre("dbus releaseNameAndQuit", "g_main_loop_quit", "MQTTMsg_delete"));
    EXPECT_THAT(sources.quitLoops, ElementsAre(sources.runLoops.at(0)));
}

TEST_F(BridgeLifecycle, DoesNothingWhenTheTimeIsUpWithoutABridge)
{
    runAndThen([this] {
        ASSERT_EQ(timeouts().size(), 1U);
        EXPECT_EQ(timeouts()[0].function(nullptr), G_SOURCE_REMOVE);
    });

    EXPECT_THAT(recordedCalls({"dbus releaseNameAndQuit", "MQTTMsg_delete"}), IsEmpty());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BridgeLifecycle, PublishesNothingAfterTheEnd)
{
    runAndThen([this] {
        bridge->quit();
        bridge->publish("a", false, "x", 1, 0, false);
    });

    EXPECT_THAT(recordedCalls({"MQTTMsg_publish"}), IsEmpty());
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "No MQTT handler, cannot publish"}));
}

TEST_F(BridgeLifecycle, DeletesTheMqttClientOnlyAfterAPublishUnderWay)
{
    std::promise<void> inside;
    std::promise<void> quitting;
    bool deletedMeanwhile = false;
    fakeMqtt().onPublish = [&] {
        inside.set_value();
        quitting.get_future().wait();
        // Long enough for a deletion that does not wait to be seen.
        deletedMeanwhile = test_support::waitUntil([] { return fakeMqtt().livingHandles == 0; },
                                                   std::chrono::milliseconds(100));
    };
    ON_CALL(*dbus, releaseNameAndQuit).WillByDefault([&quitting](GMainLoop *) {
        quitting.set_value();
        return true;
    });
    runAndThen([&] {
        std::thread worker([this] { bridge->publish("a", false, "x", 1, 0, false); });
        inside.get_future().wait();
        bridge->quit();
        worker.join();
    });

    EXPECT_FALSE(deletedMeanwhile);
    EXPECT_EQ(fakeMqtt().livingHandles, 0);
}

TEST_F(BridgeLifecycle, ArmsTheTerminationOnlyOnce)
{
    runAndThen([this] {
        const guint first = timeouts().at(0).id;
        bridge->updateTerminationTask();
        bridge->updateTerminationTask();

        ASSERT_EQ(timeouts().size(), 1U);
        EXPECT_EQ(timeouts()[0].id, first) << "the five seconds are not restarted";
    });

    EXPECT_THAT(recordedCalls({"g_timeout_add_seconds"}), ElementsAre("g_timeout_add_seconds 5"));
    EXPECT_THAT(recordedCalls({"g_source_remove"}), IsEmpty());
}

TEST_F(BridgeLifecycle, DisarmsTheTerminationWhenASubscriptionComes)
{
    runAndThen([this] {
        addSubscription();
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty());
    });
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BridgeLifecycle, DisarmsTheTerminationWhenAnEventFilterComes)
{
    runAndThen([this] {
        filterCount = 1;
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty());
    });
}

TEST_F(BridgeLifecycle, ArmsTheTerminationAnewWhenTheConfigurationBecomesEmpty)
{
    addSubscription();
    runAndThen([this] {
        EXPECT_THAT(timeouts(), IsEmpty());
        bridge->getSubscriptions() = {};
        bridge->updateTerminationTask();
        ASSERT_EQ(timeouts().size(), 1U);
        EXPECT_EQ(timeouts()[0].value, 5U);

        filterCount = 1;
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty());

        filterCount = 0;
        bridge->updateTerminationTask();
        EXPECT_EQ(timeouts().size(), 1U);
    });
}

TEST_F(BridgeLifecycle, StaysUpWithEitherKindOfWork)
{
    filterCount = 1;
    addSubscription();
    runAndThen([this] {
        bridge->getSubscriptions() = {};
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty()) << "an event filter is left";

        addSubscription();
        filterCount = 0;
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty()) << "a subscription is left";
    });
}

TEST_F(BridgeLifecycle, KeepsATerminationThatCannotBeRemoved)
{
    runAndThen([this] {
        addSubscription();
        sources.removalFails = true;
        bridge->updateTerminationTask();
        EXPECT_THAT(log.take(), ElementsAre(LogLine{16, "Could not remove termination task"}));

        bridge->getSubscriptions() = {};
        bridge->updateTerminationTask();
        EXPECT_EQ(timeouts().size(), 1U) << "it still counts as pending";

        addSubscription();
        sources.removalFails = false;
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty());
        EXPECT_THAT(log.take(), IsEmpty());
    });
}

TEST_F(BridgeLifecycle, TakesATerminationThatHasFiredForPendingStill)
{
    runAndThen([this] {
        sources.dispatch(timeouts().at(0).id);
        bridge->updateTerminationTask();
        EXPECT_THAT(timeouts(), IsEmpty()) << "not armed a second time";

        addSubscription();
        bridge->updateTerminationTask();
        EXPECT_THAT(log.take(), ElementsAre(LogLine{16, "Could not remove termination task"}));
    });
}

TEST_F(BridgeLifecycle, CountsOnlySubscriptionsWithoutAConsumer)
{
    bridge->updateTerminationTask();
    EXPECT_EQ(timeouts().size(), 1U);

    addSubscription();
    bridge->updateTerminationTask();
    EXPECT_THAT(timeouts(), IsEmpty());
}

TEST_F(BridgeLifecycle, DestroysTheConsumerBeforeTheProducerBeforeTheDbusHandler)
{
    run();
    resetCalls();
    bridge.reset();

    EXPECT_THAT(recordedCalls(), ElementsAre("MQTTMsg_delete", "destroy consumer",
                                             "destroy producer", "destroy dbus"));
}

TEST_F(BridgeLifecycle, CanStillRefuseToPublishWhileTheConsumerGoes)
{
    // As the publish worker does that the consumer's destructor is about to join.
    class LastPublisher : public NiceMock<MockEventConsumerHandler> {
    public:
        explicit LastPublisher(EventBridge &ownBridge) : bridge(ownBridge) {}
        ~LastPublisher() override { bridge.publish("a", false, "x", 1, 0, false); }

    private:
        EventBridge &bridge;
    };
    consumerHolder = std::make_unique<LastPublisher>(*bridge);
    run();
    bridge.reset();

    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "No MQTT handler, cannot publish"}));
}

} // namespace

} // namespace tovrel::test
