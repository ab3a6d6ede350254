#include "events/event_consumer_handler.h"

#include "events/publication_paths.h"
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "support/wait_until.h"
#include "unit/events/config_texts.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/wrapped_sync.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *STATUS_SUBSCRIPTION =
    "event_consumer_subscribe 0 topic0=Device topic1=MQTT topic2=ClientStatus";

using EventConsumerHandlerTest = ConsumerTest;

PublicationConfig configWith(const char *topicFilter)
{
    PublicationConfig config;
    config.addEventFilter({topicFilter, 2, "all"});
    config.setCustomTopicPrefix("site");
    return config;
}

} // namespace

TEST_F(EventConsumerHandlerTest, ConstructionMakesTheConsumerThenLoadsBothFiles)
{
    makeConsumer();
    EXPECT_EQ(recordedCalls(),
              (Calls{"event_consumer_new Tovrel",
                     std::string("confutils_sweep_temporary_files ") + publicationFile(),
                     std::string("confutils_sweep_temporary_files ") + legacyPublicationFile()}));
    EXPECT_EQ(consumer->eventFilterCount(), 0U);
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, ConstructionLoadsTheFileAndMigratesTheLegacyOne)
{
    writeFile(publicationFile(), "[4]\ntopicFilter=t:current\nretain=all\n");
    writeFile(legacyPublicationFile(), "[x]\ntopicFilter=t:legacy\nretain=none\n");
    makeConsumer();
    EXPECT_THAT(filterTexts(consumer->getPublicationConfig()),
                ElementsAre("0: 't:legacy' qos 0 retain none t|legacy",
                            "4: 't:current' qos 0 retain all t|current"));
    EXPECT_EQ(consumer->eventFilterCount(), 2U);
    EXPECT_FALSE(std::filesystem::exists(legacyPublicationFile()));
}

TEST_F(EventConsumerHandlerTest, ConstructionEmptiesTheRegistry)
{
    SubscriptionRegistry::instance().insert(3, {nullptr, 1, 0, RetainPolicy::NONE});
    makeConsumer();
    EXPECT_THAT(SubscriptionRegistry::instance().records(), IsEmpty());
}

TEST_F(EventConsumerHandlerTest, WorksWithoutAConsumerOfTheEventService)
{
    failCall("event_consumer_new");
    startConsumer({"onvif:A"});
    consumer->setMessagingStatus(true, true);
    consumer->setMessagingStatus(false, false);
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
}

TEST_F(EventConsumerHandlerTest, StartingSubscribesTheStatusOfTheMqttClientInAnyNamespace)
{
    makeConsumer();
    resetCalls();
    consumer->start("SN1");
    EXPECT_EQ(recordedCalls(),
              (Calls{"subscribe_expression_new", "subscribe_expression_add_key_value topic0 Device",
                     "subscribe_expression_add_key_value topic1 MQTT",
                     "subscribe_expression_add_key_value topic2 ClientStatus", STATUS_SUBSCRIPTION,
                     "subscribe_expression_free"}));
    EXPECT_EQ(fakeSubscriptions().at(0).userData, consumer.get());
}

namespace {

class StatusExpression : public EventConsumerHandlerTest,
                         public testing::WithParamInterface<int> {};

} // namespace

TEST_P(StatusExpression, ThatCannotBeBuiltIsLoggedAndNotSubscribed)
{
    makeConsumer({"onvif:A"});
    resetCalls();
    failCall("subscribe_expression_add_key_value", static_cast<unsigned int>(GetParam()) + 1);
    consumer->start("SN1");
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
    EXPECT_EQ(recordedCalls({"subscribe_expression_add_key_value"}).size(),
              static_cast<std::size_t>(GetParam()) + 1);
    EXPECT_EQ(recordedCalls({"subscribe_expression_free"}).size(), 1U);
    EXPECT_EQ(log.take(),
              Lines{failureLine("Failed to add key value " + std::to_string(GetParam()) +
                                " to subscription expression")});
}

INSTANTIATE_TEST_SUITE_P(Pairs, StatusExpression, testing::Values(0, 1, 2));

namespace {

const LogLine INVALID_STATUS = warningLine("Invalid mqtt-messaging status");

struct StatusCase : NamedCase {
    std::optional<std::string> active;
    std::optional<std::string> connected;
    bool becomesActive;
    bool becomesConnected;
    std::size_t warnings;
};

class Status : public EventConsumerHandlerTest, public testing::WithParamInterface<StatusCase> {};

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

TEST_F(EventConsumerHandlerTest, AnIncompleteStatusLeavesTheFlagsAsTheyAre)
{
    startConsumer({"onvif:Device"});
    activate(true);
    sendStatus(statusEvent("false", std::nullopt));
    sendStatus(statusEvent(std::nullopt, "false"));
    deliver(simpleEvent("1"));
    EXPECT_TRUE(bridge.waitForPublications(1));
    EXPECT_EQ(log.take(), (Lines{INVALID_STATUS, INVALID_STATUS}));
}

TEST_F(EventConsumerHandlerTest, AnActiveTextOtherThanTrueOrFalseDeactivates)
{
    startConsumer({"onvif:Device"});
    activate();
    log.take();
    sendStatus("yes", "true");
    EXPECT_TRUE(test_support::waitUntil([] { return filterSubscriptionCount() == 0; }));
    EXPECT_EQ(log.take(), Lines{INVALID_STATUS});
}

TEST_F(EventConsumerHandlerTest, AStatusWithoutItsHandlerIsLogged)
{
    startConsumer();
    const auto callback = fakeSubscriptions().at(0).callback;
    callback(newFakeEvent(statusEvent("true", "true")), nullptr);
    EXPECT_EQ(fakeLivingObjects().events, 0);
    EXPECT_EQ(log.take(), Lines{failureLine("Cannot change event consumer status")});
}

TEST_F(EventConsumerHandlerTest, TheSameStatusAgainChangesNothing)
{
    startConsumer({"onvif:Device"});
    activate();
    sendStatus("true", "false");
    sendStatus("1", "0");
    deactivate();
    EXPECT_EQ(subscriptionCalls(),
              (Calls{STATUS_SUBSCRIPTION, "event_consumer_subscribe 1 topic0=tns1:Device !topic1",
                     "event_consumer_unsubscribe 1 0"}));
}

TEST_F(EventConsumerHandlerTest, ARequestThatIsQueuedTwiceIsDoneOnce)
{
    makeConsumer({"onvif:Device"});
    consumer->setMessagingStatus(true, false);
    consumer->setMessagingStatus(true, false);
    consumer->start("SN1");
    ASSERT_TRUE(test_support::waitUntil([] { return filterSubscriptionCount() == 1; }));
    deactivate();
    EXPECT_EQ(fakeSubscribeCount(), 2);
}

TEST_F(EventConsumerHandlerTest, AStatusDuringSubscriptionWorkIsJudgedAgainstTheStateOnItsWay)
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

TEST_F(EventConsumerHandlerTest, ADeliveredEventIsPublishedAsItsFilterAsks)
{
    startConsumer();
    consumer->getPublicationConfig().setEventFilter("0", {"onvif:Device", 2, "property"});
    activate(true);
    deliver({.items = {{"topic0", "Device", "tns1"},
                       {"topic1", "Beta", "tnsnorq"},
                       {"topic2", "Gamma", "tnsnorq"},
                       {"index", "1", std::nullopt, {"onvif-source"}},
                       {"state", "1"}},
             .isProperty = true,
             .json = "{\"state\":1}"});
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(
        bridge.publications(),
        ElementsAre(Publication{"event/tns:onvif/Device/tns:norq/Beta/Gamma/$source/index/1", true,
                                "{\"state\":1}", 2, true}));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, AnEventOfTwoFiltersIsPublishedForEachOfThem)
{
    startConsumer();
    consumer->getPublicationConfig().setEventFilter("0", {"onvif:Device", 0, "all"});
    consumer->getPublicationConfig().setEventFilter("1", {"onvif:Device//.", 1, "none"});
    activate(true);
    deliver(simpleEvent("x"), 0);
    deliver(simpleEvent("x"), 1);
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_THAT(bridge.publications(),
                ElementsAre(Publication{"event/tns:onvif/Device", true, "x", 0, true},
                            Publication{"event/tns:onvif/Device", true, "x", 1, false}));
}

TEST_F(EventConsumerHandlerTest, SettingsChangedWhileAnEventWaitsShapeItsTopic)
{
    startConsumer({"onvif:Device"});
    activate();
    deliver(simpleEvent("x"));
    consumer->getPublicationConfig().setTopicPrefixSetting("custom");
    consumer->getPublicationConfig().setCustomTopicPrefix("site");
    consumer->getPublicationConfig().setIncludeTopicNamespaces(false);
    sendStatus("true", "true");
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_EQ(bridge.publications().front().topic, "site/Device");
    EXPECT_FALSE(bridge.publications().front().useDeviceTopicPrefix);
}

TEST_F(EventConsumerHandlerTest, ThePayloadCarriesTheSerialNumberWhenTheSettingsSaySo)
{
    startConsumer({"onvif:Device"});
    activate();
    deliver(simpleEvent("x"));
    consumer->getPublicationConfig().setIncludeSerialNumberInPayload(true);
    deliver(simpleEvent("x"));
    EXPECT_EQ(recordedCalls({"event_get_json"}),
              (Calls{"event_get_json onvif=onvif norq=norq serial=(none)",
                     "event_get_json onvif=onvif norq=norq serial=SN1"}));
}

TEST_F(EventConsumerHandlerTest, AnInternalEventIsFreedWithoutTranslation)
{
    startConsumer({"onvif:Device"});
    activate(true);
    FakeReceivedEvent internal = simpleEvent("internal");
    internal.isInternal = true;
    deliver(internal);
    EXPECT_EQ(fakeLivingObjects().events, 0);
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(recordedCalls({"event_get_json"}).size(), 1U);
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, AnEventOfAnUnknownSlotIsDroppedSilently)
{
    startConsumer({"onvif:Device"});
    activate(true);
    const auto subscription = filterSubscription();
    deactivate(true);
    subscription.callback(newFakeEvent(simpleEvent("late")), subscription.userData);
    EXPECT_EQ(fakeLivingObjects().events, 0);
    EXPECT_THAT(recordedCalls({"event_get_json"}), IsEmpty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, AnEventWhoseRecordHasNoHandlerIsLoggedAndDropped)
{
    makeConsumer({"onvif:Device"});
    SubscriptionRegistry::instance().insert(0, {nullptr, 0, 0, RetainPolicy::NONE});
    consumer->subscribeEventFilters();
    deliver(simpleEvent("x"));
    EXPECT_EQ(fakeLivingObjects().events, 0);
    EXPECT_EQ(log.take(), Lines{failureLine("No event handler, can't translate")});
}

TEST_F(EventConsumerHandlerTest, E10AnEventThatCannotBeRenderedIsLoggedAndTheNextIsPublished)
{
    startConsumer({"onvif:Device"});
    activate(true);
    FakeReceivedEvent broken = simpleEvent("");
    broken.json.reset();
    deliver(broken);
    EXPECT_EQ(log.take(), Lines{failureLine("Exception in delivery callback: basic_string: "
                                            "construction from null is not valid")});
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(fakeLivingObjects().events, 0);
}

TEST_F(EventConsumerHandlerTest, AnExceptionOutOfAPublicationIsLoggedAndTheNextIsPublished)
{
    bridge.onPublish = [](const Publication &publication) {
        if (publication.payload == "broken") {
            throw std::runtime_error("no such thing");
        }
    };
    startConsumer({"onvif:Device"});
    activate(true);
    deliver(simpleEvent("broken"));
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(log.take(), Lines{failureLine("Exception in publish worker: no such thing")});
}

TEST_F(EventConsumerHandlerTest, WithoutABridgeEveryEventIsLoggedAndDropped)
{
    EventConsumerHandler alone(nullptr);
    alone.publishEvent(EventContainer());
    EXPECT_EQ(log.take(), Lines{failureLine("No event_bridge, cannot publish")});
}

namespace {

/** Consumer that is active, with one filter, and disconnected. */
class DisconnectedConsumerTest : public EventConsumerHandlerTest {
protected:
    void SetUp() override
    {
        EventConsumerHandlerTest::SetUp();
        bridge.onPublish = [this](const Publication &) {
            if (!mayPublish) {
                ADD_FAILURE() << "published while disconnected";
            }
        };
        startConsumer({"onvif:Device"});
        activate();
    }

    void connect()
    {
        mayPublish = true;
        sendStatus("true", "true");
    }
    void disconnect()
    {
        sendStatus("true", "false");
        mayPublish = false;
    }
    void deliverNumbers(int first, int last)
    {
        for (int number = first; number <= last; ++number) {
            deliver(simpleEvent(std::to_string(number)));
        }
    }
    static std::vector<std::string> numbers(int first, int last)
    {
        std::vector<std::string> texts;
        for (int number = first; number <= last; ++number) {
            texts.push_back(std::to_string(number));
        }
        return texts;
    }

    std::atomic<bool> mayPublish = false;
};

const LogLine TOO_MANY_EVENTS = progressLine("Too many queued events, dropping the oldest one");

} // namespace

TEST_F(DisconnectedConsumerTest, QueuedEventsGoOutInOrderWhenItConnects)
{
    deliverNumbers(1, 50);
    EXPECT_THAT(bridge.payloads(), IsEmpty());
    connect();
    ASSERT_TRUE(bridge.waitForPublications(50));
    EXPECT_EQ(bridge.payloads(), numbers(1, 50));
}

TEST_F(DisconnectedConsumerTest, Holds1024EventsWithoutALoss)
{
    deliverNumbers(1, 1024);
    EXPECT_EQ(log.take(), Lines());
    connect();
    ASSERT_TRUE(bridge.waitForPublications(1024));
    EXPECT_EQ(bridge.payloads(), numbers(1, 1024));
}

TEST_F(DisconnectedConsumerTest, DropsTheOldestOf1025AndSaysSo)
{
    deliverNumbers(1, 1025);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
    connect();
    ASSERT_TRUE(bridge.waitForPublications(1024));
    EXPECT_EQ(bridge.payloads(), numbers(2, 1025));
}

TEST_F(DisconnectedConsumerTest, SaysSoOnceForEachRunOfDrops)
{
    deliverNumbers(1, 1100);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
    connect();
    ASSERT_TRUE(bridge.waitForPublications(1024));
    disconnect();
    deliverNumbers(1, 1);
    EXPECT_EQ(log.take(), Lines());
    deliverNumbers(2, 1026);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
}

TEST_F(DisconnectedConsumerTest, DoesNotSaySoAgainWhenNothingWasPushedBelowTheBound)
{
    deliverNumbers(1, 1025);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
    deactivate(); // discards what is queued, but pushes nothing
    activate();
    deliverNumbers(1, 1024);
    EXPECT_EQ(log.take(), Lines());
    deliverNumbers(1025, 1026);
    EXPECT_EQ(log.take(), Lines{TOO_MANY_EVENTS});
}

TEST_F(DisconnectedConsumerTest, E5DiscardsWhatIsQueuedWhenItBecomesInactive)
{
    deliverNumbers(1, 10);
    deactivate();
    activate();
    deliverNumbers(11, 12);
    connect();
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_EQ(bridge.payloads(), numbers(11, 12));
}

TEST_F(DisconnectedConsumerTest, E6DiscardsWhatIsQueuedWhenItsConfigurationChanges)
{
    deliverNumbers(1, 10);
    const int before = fakeSubscribeCount();
    consumer->setPublicationConfig(configWith("onvif:Device"));
    ASSERT_TRUE(test_support::waitUntil([&] { return fakeSubscribeCount() > before; }));
    deliverNumbers(11, 12);
    connect();
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_EQ(bridge.payloads(), numbers(11, 12));
}

TEST_F(EventConsumerHandlerTest,
       E6AnEventThatThePublishWorkerHasTakenIsPublishedInSpiteOfADeactivation)
{
    std::atomic<bool> taken = false;
    std::atomic<bool> goOn = false;
    bridge.onPublish = [&](const Publication &) {
        taken = true;
        EXPECT_TRUE(test_support::waitUntil([&] { return goOn.load(); }));
    };
    startConsumer({"onvif:Device"});
    activate(true);
    deliver(simpleEvent("taken"));
    ASSERT_TRUE(test_support::waitUntil([&] { return taken.load(); }));
    deliver(simpleEvent("discarded"));
    deactivate(true);
    activate(true); // the deactivation is done
    goOn = true;
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_THAT(bridge.payloads(), ElementsAre("taken", "next"));
}

TEST_F(EventConsumerHandlerTest, AConfigurationSetWhileInactiveIsCopiedAndSavedOnly)
{
    startConsumer();
    resetCalls();
    const PublicationConfig newConfig = configWith("onvif:New");
    consumer->setPublicationConfig(newConfig);
    EXPECT_EQ(filterTexts(consumer->getPublicationConfig()), filterTexts(newConfig));
    EXPECT_EQ(settingsText(consumer->getPublicationConfig().getSettings()),
              settingsText(newConfig.getSettings()));
    EXPECT_EQ(consumer->getPublicationConfig().allocateId(), "1");
    EXPECT_THAT(fakeConfutils().files.at(publicationFile()).contents,
                testing::HasSubstr("topicFilter=onvif:New\n"));
    activate();
    EXPECT_EQ(subscriptionCalls(), Calls{"event_consumer_subscribe 1 topic0=tns1:New !topic1"});
}

TEST_F(EventConsumerHandlerTest,
       E6AConfigurationSetWhileActiveIsFollowedByOneUnsubscriptionAndOneSubscription)
{
    startConsumer({"onvif:A", "onvif:B"});
    activate();
    resetCalls();
    consumer->setPublicationConfig(configWith("onvif:New"));
    ASSERT_TRUE(test_support::waitUntil([] { return fakeSubscribeCount() == 4; }));
    deactivate();
    EXPECT_EQ(subscriptionCalls(),
              (Calls{"event_consumer_unsubscribe 1 0", "event_consumer_unsubscribe 2 0",
                     "event_consumer_subscribe 3 topic0=tns1:New !topic1",
                     "event_consumer_unsubscribe 3 0"}));
}

TEST_F(EventConsumerHandlerTest, AConfigurationThatCannotBeSavedIsAppliedAllTheSame)
{
    startConsumer({"onvif:A"});
    activate();
    failCall("confutils_set_file_contents_with_sync_mode");
    consumer->setPublicationConfig(configWith("onvif:New"));
    EXPECT_EQ(log.take(), Lines{failureLine("Could not save event-to-MQTT configurations to file: "
                                            "Failed to write")});
    EXPECT_TRUE(test_support::waitUntil([] {
        return filterSubscriptionCount() == 1 &&
               filterSubscription().conditions == "topic0=tns1:New !topic1";
    }));
}

TEST_F(EventConsumerHandlerTest, RefreshingWhileInactiveDoesNothing)
{
    startConsumer({"onvif:A"});
    resetCalls();
    consumer->refreshSubscriptions();
    activate();
    EXPECT_EQ(subscriptionCalls(), Calls{"event_consumer_subscribe 1 topic0=tns1:A !topic1"});
}

TEST_F(EventConsumerHandlerTest, RefreshingWhileActiveAppliesWhatWasChangedInPlace)
{
    startConsumer({"onvif:A"});
    activate();
    resetCalls();
    consumer->getPublicationConfig().addEventFilter({"onvif:B", 0, "none"});
    consumer->refreshSubscriptions();
    ASSERT_TRUE(test_support::waitUntil([] { return fakeSubscribeCount() == 4; }));
    EXPECT_EQ(subscriptionCalls(), (Calls{"event_consumer_unsubscribe 1 0",
                                          "event_consumer_subscribe 2 topic0=tns1:A !topic1",
                                          "event_consumer_subscribe 3 topic0=tns1:B !topic1"}));
}

TEST_F(EventConsumerHandlerTest, DestructionFreesTheConsumerWithoutUnsubscribing)
{
    startConsumer({"onvif:A", "onvif:B"});
    activate();
    resetCalls();
    consumer.reset();
    EXPECT_EQ(recordedCalls(), Calls{"event_consumer_free"});
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
    EXPECT_THAT(SubscriptionRegistry::instance().records(), IsEmpty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, DestructionWithoutAStartIsPossible)
{
    makeConsumer({"onvif:A"});
    consumer.reset();
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, DestructionDropsWhatIsQueued)
{
    startConsumer({"onvif:Device"});
    activate();
    deliver(simpleEvent("x"));
    consumer.reset();
    EXPECT_THAT(bridge.payloads(), IsEmpty());
}

TEST_F(EventConsumerHandlerTest, AnExceptionWhileJoiningTheWorkersIsLogged)
{
    startConsumer({"onvif:A"});
    failCall("std::thread::join", 2);
    consumer.reset();
    EXPECT_EQ(log.take(), Lines{failureLine("Exception when terminating event consumption: "
                                            "No such process")});
    EXPECT_EQ(recordedCalls({"event_consumer_free"}).size(), 1U);
}

TEST_F(EventConsumerHandlerTest, WorkersThatAreNotToRunReturnAtOnce)
{
    makeConsumer();
    consumer->statusWorker();
    consumer->publishWorker();
}

TEST_F(EventConsumerHandlerTest, AFailureToLockIsPassedOn)
{
    makeConsumer();
    syncHooks().lockError = [this](const pthread_mutex_t *mutex) {
        return isWithin(*consumer, mutex) ? EDEADLK : 0;
    };
    EXPECT_THROW(consumer->setMessagingStatus(true, true), std::system_error);
    EXPECT_THROW(consumer->refreshSubscriptions(), std::system_error);
    EXPECT_THROW(consumer->setPublicationConfig(PublicationConfig()), std::system_error);
    syncHooks() = {};
}

} // namespace tovrel::test
