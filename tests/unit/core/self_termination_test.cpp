/** How the bridge ends itself when nothing is configured. */
#include "unit/core/bridge_lifecycle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Throw;

namespace tovrel::test {

namespace {

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
        EXPECT_THAT(recordedCalls({"g_source_remove"}), IsEmpty()) << "what is not there";
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

TEST_F(BridgeLifecycle, CarriesAnExceptionOfTheTerminationToTheLoop)
{
    ON_CALL(*dbus, releaseNameAndQuit).WillByDefault(Throw(std::runtime_error("no bus")));
    sources.whileRunning = [this] {
        ASSERT_EQ(timeouts().size(), 1U);
        EXPECT_EQ(sources.dispatch(timeouts()[0].id), G_SOURCE_REMOVE);
        g_main_context_iteration(nullptr, FALSE);
        EXPECT_THAT(sources.quitLoops, ElementsAre(sources.runLoops.at(0)));
    };

    EXPECT_THROW(run(), std::runtime_error);
}

} // namespace

} // namespace tovrel::test
