/** What the status of the MQTT client does to the consumer. */
#include "events/event_consumer_handler.h"
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/status_watch.h"
#include "unit/events/wrapped_sync.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace tovrel::test {

namespace {

using ConsumerStatusTest = ConsumerTest;

} // namespace

namespace {

const LogLine INVALID_STATUS = warningLine("Invalid mqtt-messaging status");

struct StatusCase : NamedCase {
    std::optional<std::string> active;
    std::optional<std::string> connected;
    bool becomesActive;
    bool becomesConnected;
    std::size_t warnings;
};

class Status : public ConsumerStatusTest, public testing::WithParamInterface<StatusCase> {};

} // namespace

TEST_P(Status, LogsEveryTextThatItCannotUse)
{
    startConsumer();
    sendStatus(statusEvent(GetParam().active, GetParam().connected));
    EXPECT_EQ(log.take(), Lines(GetParam().warnings, INVALID_STATUS));
    EXPECT_EQ(fakeLivingObjects().events, 0);
}

TEST_P(Status, DecidesWhetherQueuedEventsGoOut)
{
    std::atomic<bool> mayPublish = GetParam().becomesConnected;
    bridge.onPublish = [&mayPublish](const Publication &) { EXPECT_TRUE(mayPublish); };
    startConsumer();
    sendStatus(statusEvent(GetParam().active, GetParam().connected));
    event_t *const event = newFakeEvent(simpleEvent("x"));
    consumer->enqueueEvent(std::make_shared<EventContainer>(), event);
    event_free(event);
    if (!GetParam().becomesConnected) {
        mayPublish = true;
        consumer->setMessagingStatus(GetParam().becomesActive, true);
    }
    EXPECT_TRUE(bridge.waitForPublications(1));
}

TEST_P(Status, DecidesWhetherTheFiltersAreSubscribed)
{
    startConsumer({"onvif:Device"});
    sendStatus(statusEvent(GetParam().active, GetParam().connected));
    if (GetParam().becomesActive) {
        EXPECT_TRUE(test_support::waitUntil([] { return filterSubscriptionCount() == 1; }));
    } else {
        // The status worker works in order: had it subscribed, the record would show it.
        activate();
        EXPECT_EQ(
            subscriptionCalls(),
            (Calls{STATUS_SUBSCRIPTION, "event_consumer_subscribe 1 topic0=tns1:Device !topic1"}));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Status,
    testing::Values(StatusCase{{"TrueTrue"}, "true", "true", true, true, 0},
                    StatusCase{{"OneOne"}, "1", "1", true, true, 0},
                    StatusCase{{"TrueFalse"}, "true", "false", true, false, 0},
                    StatusCase{{"FalseTrue"}, "false", "true", false, true, 0},
                    StatusCase{{"ZeroZero"}, "0", "0", false, false, 0},
                    StatusCase{{"OtherActive"}, "yes", "true", false, true, 1},
                    StatusCase{{"OtherConnected"}, "true", "TRUE", true, false, 1},
                    StatusCase{{"BothOther"}, "", "10", false, false, 2},
                    StatusCase{{"WithoutActive"}, std::nullopt, "true", false, false, 1},
                    StatusCase{{"WithoutConnected"}, "true", std::nullopt, false, false, 1},
                    StatusCase{{"WithoutBoth"}, std::nullopt, std::nullopt, false, false, 1}),
    CaseName());

TEST_F(ConsumerStatusTest, AnIncompleteStatusLeavesTheFlagsAsTheyAre)
{
    startConsumer({"onvif:Device"});
    activate(true);
    sendStatus(statusEvent("false", std::nullopt));
    sendStatus(statusEvent(std::nullopt, "false"));
    deliver(simpleEvent("1"));
    EXPECT_TRUE(bridge.waitForPublications(1));
    EXPECT_EQ(log.take(), (Lines{INVALID_STATUS, INVALID_STATUS}));
}

TEST_F(ConsumerStatusTest, AnActiveTextOtherThanTrueOrFalseDeactivates)
{
    startConsumer({"onvif:Device"});
    activate();
    log.take();
    sendStatus("yes", "true");
    EXPECT_TRUE(test_support::waitUntil([] { return filterSubscriptionCount() == 0; }));
    EXPECT_EQ(log.take(), Lines{INVALID_STATUS});
}

TEST_F(ConsumerStatusTest, AStatusWithoutItsHandlerIsLogged)
{
    startConsumer();
    const auto callback = fakeSubscriptions().at(0).callback;
    callback(newFakeEvent(statusEvent("true", "true")), nullptr);
    EXPECT_EQ(fakeLivingObjects().events, 0);
    EXPECT_EQ(log.take(), Lines{failureLine("Cannot change event consumer status")});
}

TEST_F(ConsumerStatusTest, TheSameStatusAgainDoesNotEvenWakeTheStatusWorker)
{
    makeConsumer({"onvif:Device"});
    const StatusWatch watch(*consumer);
    consumer->start("SN1");
    activate();
    const int before = watch.wakeUps();
    sendStatus("true", "false");
    sendStatus("1", "0");
    EXPECT_EQ(watch.wakeUps(), before);
    deactivate();
    EXPECT_EQ(watch.wakeUps(), before + 1);
    EXPECT_EQ(subscriptionCalls(),
              (Calls{STATUS_SUBSCRIPTION, "event_consumer_subscribe 1 topic0=tns1:Device !topic1",
                     "event_consumer_unsubscribe 1 0"}));
    consumer.reset();
}

TEST_F(ConsumerStatusTest, ARequestThatIsQueuedTwiceIsDoneOnce)
{
    makeConsumer({"onvif:Device"});
    const StatusWatch watch(*consumer);
    consumer->setMessagingStatus(true, false);
    consumer->setMessagingStatus(true, false);
    EXPECT_EQ(watch.wakeUps(), 2) << "requests are compared with the state, not with each other";
    consumer->start("SN1");
    ASSERT_TRUE(watch.waitForIdle());
    EXPECT_EQ(recordedCalls({"event_consumer_subscribe"}).size(), 2U) << "one is the status";
    EXPECT_EQ(filterSubscriptionCount(), 1U);
    consumer.reset();
}

TEST_F(ConsumerStatusTest, ARequestIsComparedWithTheStateAndNotWithWhatIsQueued)
{
    makeConsumer({"onvif:Device"});
    const StatusWatch watch(*consumer);
    consumer->setMessagingStatus(true, false);
    consumer->setMessagingStatus(false, false); // is inactive still, so nothing is asked for
    consumer->start("SN1");
    ASSERT_TRUE(watch.waitForIdle());
    EXPECT_EQ(filterSubscriptionCount(), 1U);
    consumer.reset();
}

TEST_F(ConsumerStatusTest, AnExceptionOutOfAStatusIsLoggedAndTheNextStatusCounts)
{
    makeConsumer({"onvif:Device"});
    std::atomic<bool> failing = false;
    syncHooks().lockError = [&, here = std::this_thread::get_id(),
                             &watched = *consumer](const pthread_mutex_t *mutex) {
        return failing && std::this_thread::get_id() == here && isWithin(watched, mutex) ? EDEADLK
                                                                                         : 0;
    };
    consumer->start("SN1");
    failing = true;
    sendStatus("true", "true");
    failing = false;
    EXPECT_EQ(log.take(),
              Lines{failureLine("Exception in status callback: Resource deadlock avoided")});
    EXPECT_EQ(fakeLivingObjects().events, 0);
    activate();
    EXPECT_EQ(filterSubscriptionCount(), 1U);
    consumer.reset();
    syncHooks() = {};
}

namespace {

/** Lets the `nth` next call of the event service that comes through the hook throw. */
void throwInConsumerCall(int nth)
{
    setFakeConsumerHook([nth, calls = std::make_shared<std::atomic<int>>(0)] {
        if (++*calls == nth) {
            throw std::runtime_error("no memory");
        }
    });
}

const LogLine WORKER_EXCEPTION = failureLine("Exception in status worker: no memory");

} // namespace

TEST_F(ConsumerStatusTest, AnExceptionMidwayThroughSubscribingLeavesWhatTheNextActivationCompletes)
{
    makeConsumer({"onvif:A", "onvif:B", "onvif:C"});
    const StatusWatch watch(*consumer);
    consumer->start("SN1");
    ASSERT_TRUE(watch.waitForIdle(1));
    throwInConsumerCall(2);
    sendStatus("true", "false");
    ASSERT_TRUE(watch.waitForIdle(2));
    EXPECT_EQ(log.take(), Lines{WORKER_EXCEPTION});
    EXPECT_EQ(filterSubscriptionCount(), 1U);
    deactivate();
    activate();
    EXPECT_EQ(filterSubscriptionCount(), 3U);
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to unsubscribe to subscription id: -1")});
    EXPECT_EQ(SubscriptionRegistry::instance().records().size(), 3U);
    consumer.reset();
}

TEST_F(ConsumerStatusTest, AnExceptionMidwayThroughUnsubscribingIsMadeGoodBeforeTheNextActivation)
{
    makeConsumer({"onvif:A", "onvif:B", "onvif:C"});
    const StatusWatch watch(*consumer);
    consumer->start("SN1");
    activate();
    const int idle = watch.idleCount();
    resetCalls();
    throwInConsumerCall(2);
    sendStatus("false", "false");
    ASSERT_TRUE(watch.waitForIdle(idle + 1));
    ASSERT_TRUE(test_support::waitUntil([this] { return log.take() == Lines{WORKER_EXCEPTION}; }));
    activate();
    EXPECT_EQ(filterSubscriptionCount(), 3U);
    EXPECT_EQ(
        subscriptionCalls(),
        (Calls{"event_consumer_unsubscribe 1 0", "event_consumer_unsubscribe 2 0",
               "event_consumer_unsubscribe 3 0", "event_consumer_subscribe 4 topic0=tns1:A !topic1",
               "event_consumer_subscribe 5 topic0=tns1:B !topic1",
               "event_consumer_subscribe 6 topic0=tns1:C !topic1"}));
    EXPECT_EQ(log.take(), Lines());
    consumer.reset();
}

TEST_F(ConsumerStatusTest, AStatusDuringSubscriptionWorkIsJudgedAgainstTheStateOnItsWay)
{
    startConsumer({"onvif:Device"});
    std::atomic<bool> reversed = false;
    setFakeConsumerHook([&] {
        if (!reversed.exchange(true)) {
            consumer->setMessagingStatus(true, false);  // nothing new
            consumer->setMessagingStatus(false, false); // to be done next
        }
    });
    sendStatus("true", "false");
    EXPECT_TRUE(test_support::waitUntil(
        [] { return fakeSubscribeCount() == 2 && filterSubscriptionCount() == 0; }));
    setFakeConsumerHook(nullptr);
    EXPECT_EQ(subscriptionCalls(),
              (Calls{STATUS_SUBSCRIPTION, "event_consumer_subscribe 1 topic0=tns1:Device !topic1",
                     "event_consumer_unsubscribe 1 0"}));
}

} // namespace tovrel::test
