/** Start-up and end of the bridge. */
#include "mqtt/config_paths.h"
#include "support/wait_until.h"
#include "unit/core/bridge_lifecycle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::Throw;

namespace tovrel::test {

namespace {

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
        g_main_context_iteration(nullptr, FALSE);
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

TEST_F(BridgeLifecycle, EmptiesTheStoreBeforeTheConsumerGoes)
{
    class LastReader : public NiceMock<MockEventConsumerHandler> {
    public:
        LastReader(EventBridge &ownBridge, std::size_t &ownCount)
            : bridge(ownBridge), count(ownCount)
        {
        }
        ~LastReader() override { count = bridge.getSubscriptions().items.size(); }

    private:
        EventBridge &bridge;
        std::size_t &count;
    };
    std::size_t itemsLeft = 99;
    consumerHolder = std::make_unique<LastReader>(*bridge, itemsLeft);
    addSubscription();
    run();
    bridge.reset();

    EXPECT_EQ(itemsLeft, 0U);
}

} // namespace

} // namespace tovrel::test
