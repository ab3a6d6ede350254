#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/wrapped_sync.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const LogLine NO_KEY_VALUE = failureLine("Failed to add key value to subscription expression");
const LogLine NO_NAMESPACE = failureLine("Failed to add namespace to subscription expression");
const LogLine TOO_MANY = warningLine("Too many subscriptions, ignoring");

/** Drives the two operations by themselves, without workers. */
class EventFilterSubscriptionsTest : public ConsumerTest {
protected:
    void subscribe(const std::vector<const char *> &topicFilters)
    {
        makeConsumer(topicFilters);
        resetCalls();
        consumer->subscribeEventFilters();
    }

    static std::vector<std::string> conditions()
    {
        std::vector<std::string> texts;
        for (const auto &subscription : fakeSubscriptions()) {
            texts.push_back(subscription.conditions);
        }
        return texts;
    }
    static const std::atomic<std::int32_t> *slotOf(const FakeSubscription &subscription)
    {
        return static_cast<const std::atomic<std::int32_t> *>(subscription.userData);
    }
};

struct FilterCase : NamedCase {
    const char *topicFilter;
    const char *conditions;
};

class EventFilter : public EventFilterSubscriptionsTest,
                    public testing::WithParamInterface<FilterCase> {};

} // namespace

TEST_P(EventFilter, BecomesTheConditionsOfASubscription)
{
    subscribe({GetParam().topicFilter});
    EXPECT_THAT(conditions(), ElementsAre(GetParam().conditions));
    EXPECT_EQ(log.take(), Lines());
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, EventFilter,
    testing::Values(
        FilterCase{{"ShortNames"},
                   "onvif:Device/norq:Beta",
                   "topic0=tns1:Device topic1=tnsnorq:Beta !topic2"},
        FilterCase{{"FullVendorNameIsExtendedAgain"},
                   "tns1:Device/tnsnorq:Beta//.",
                   "topic0=tns1:Device topic1=tnstnsnorq:Beta"},
        FilterCase{
            {"NamespaceIsInherited"}, "norq:A/B", "topic0=tnsnorq:A topic1=tnsnorq:B !topic2"},
        FilterCase{{"NoNamespace"}, "A", "topic0=A !topic1"},
        FilterCase{{"OtherNamespace"}, "tnsfoo:A", "topic0=tnsfoo:A !topic1"},
        FilterCase{{"OtherCase"}, "Norq:A/ONVIF:B", "topic0=Norq:A topic1=ONVIF:B !topic2"},
        FilterCase{{"EveryOccurrence"}, "norqnorq:A", "topic0=tnsnorqtnsnorq:A !topic1"},
        FilterCase{{"BothNamesInOne"}, "onvifnorq:A", "topic0=tns1tnsnorq:A !topic1"},
        FilterCase{{"WithinOtherText"}, "xonvify:A", "topic0=xtns1y:A !topic1"},
        FilterCase{
            {"NameAppearingAfterReplacementIsLeft"}, "nonorqrq:A", "topic0=notnsnorqrq:A !topic1"},
        FilterCase{{"ValuesAreNotReplaced"},
                   "norq:norq/onvif:onvif",
                   "topic0=tnsnorq:norq topic1=tns1:onvif !topic2"},
        FilterCase{
            {"EmptySegment"}, "onvif:A//B", "topic0=tns1:A topic1=tns1: topic2=tns1:B !topic3"},
        FilterCase{{"EmptyFilter"}, "", "!topic0"}, FilterCase{{"OnlySubtopics"}, "//.", ""},
        FilterCase{{"TwelveSegments"},
                   "a/b/c/d/e/f/g/h/i/j/k/l",
                   "topic0=a topic1=b topic2=c topic3=d topic4=e topic5=f topic6=g topic7=h "
                   "topic8=i topic9=j topic10=k topic11=l !topic12"}),
    CaseName());

TEST_F(EventFilterSubscriptionsTest, AChangedFilterIsSubscribedWithAllItsAccumulatedSegments)
{
    makeConsumer({"onvif:Device//."});
    consumer->getPublicationConfig().getEventFilter("0").setTopicFilter("norq:Beta");
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=tns1:Device topic1=tnsnorq:Beta"));
}

TEST_F(EventFilterSubscriptionsTest, TheLibraryIsCalledInAGivenOrder)
{
    subscribe({"onvif:Device/norq:Beta"});
    EXPECT_EQ(
        recordedCalls(),
        (Calls{"subscribe_expression_new", "subscribe_expression_add_key_value topic0 Device",
               "subscribe_expression_set_name_space topic0 tns1",
               "subscribe_expression_add_key_value topic1 Beta",
               "subscribe_expression_set_name_space topic1 tnsnorq",
               "subscribe_expression_add_not_key topic2", "subscribe_expression_serialize_xml",
               "event_consumer_subscribe 0 topic0=tns1:Device topic1=tnsnorq:Beta !topic2",
               "subscribe_expression_free"}));
}

TEST_F(EventFilterSubscriptionsTest, FiltersAreSubscribedInTheOrderOfTheirIdsAsTexts)
{
    makeConsumer();
    for (const char *id : {"2", "10", "1", "0"}) {
        consumer->getPublicationConfig().setEventFilter(id, {id, 0, "none"});
    }
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=0 !topic1", "topic0=1 !topic1",
                                          "topic0=10 !topic1", "topic0=2 !topic1"));
}

TEST_F(EventFilterSubscriptionsTest, TheUserDataOfASubscriptionIsTheAddressOfItsSlot)
{
    subscribe({"a", "b", "c"});
    const auto subscriptions = fakeSubscriptions();
    ASSERT_EQ(subscriptions.size(), 3U);
    for (std::size_t index = 0; index < subscriptions.size(); ++index) {
        EXPECT_EQ(*slotOf(subscriptions[index]), static_cast<std::int32_t>(index));
        EXPECT_EQ(slotOf(subscriptions[index]), slotOf(subscriptions[0]) + index);
    }
}

TEST_F(EventFilterSubscriptionsTest, TheRegistryHoldsWhatADeliveryNeeds)
{
    makeConsumer();
    consumer->getPublicationConfig().setEventFilter("5", {"a", 2, "all"});
    consumer->getPublicationConfig().setEventFilter("6", {"b", 0, "none"});
    consumer->subscribeEventFilters();
    const auto records = SubscriptionRegistry::instance().records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records.at(0).handler, consumer.get());
    EXPECT_EQ(records.at(0).subscriptionId, fakeSubscriptions().at(0).id);
    EXPECT_EQ(records.at(0).qos, 2);
    EXPECT_EQ(records.at(0).retainPolicy, RetainPolicy::ALL);
    EXPECT_EQ(records.at(1).subscriptionId, fakeSubscriptions().at(1).id);
    EXPECT_EQ(records.at(1).qos, 0);
    EXPECT_EQ(records.at(1).retainPolicy, RetainPolicy::NONE);
}

TEST_F(EventFilterSubscriptionsTest, ARecordThatIsThereStaysAsItIs)
{
    makeConsumer({"a"});
    SubscriptionRegistry::instance().insert(0, {consumer.get(), 77, 2, RetainPolicy::ALL});
    consumer->subscribeEventFilters();
    const auto record = SubscriptionRegistry::instance().records().at(0);
    EXPECT_EQ(record.subscriptionId, 77);
    EXPECT_EQ(record.qos, 2);
    EXPECT_EQ(record.retainPolicy, RetainPolicy::ALL);
}

TEST_F(EventFilterSubscriptionsTest, AFilterWhoseKeyValueIsRefusedIsSkipped)
{
    makeConsumer({"onvif:A/B", "onvif:C"});
    failCall("subscribe_expression_add_key_value", 2);
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=tns1:C !topic1"));
    EXPECT_EQ(*slotOf(fakeSubscriptions().at(0)), 0);
    EXPECT_EQ(log.take(), Lines{NO_KEY_VALUE});
    EXPECT_EQ(fakeLivingObjects().expressions, 0);
}

TEST_F(EventFilterSubscriptionsTest, AFilterWhoseNamespaceIsRefusedIsSkipped)
{
    makeConsumer({"onvif:A", "onvif:C"});
    resetCalls();
    failCall("subscribe_expression_set_name_space", 1);
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=tns1:C !topic1"));
    EXPECT_EQ(log.take(), Lines{NO_NAMESPACE});
    EXPECT_EQ(fakeLivingObjects().expressions, 0);
}

TEST_F(EventFilterSubscriptionsTest, WithoutAnExpressionTheFilterIsSkipped)
{
    makeConsumer({"onvif:A", "onvif:C"});
    failCall("subscribe_expression_new", 1);
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=tns1:C !topic1"));
    EXPECT_EQ(log.take(), Lines{NO_KEY_VALUE});
}

TEST_F(EventFilterSubscriptionsTest, ARefusedAbsenceConditionIsNotLookedAt)
{
    makeConsumer({"onvif:A"});
    failCall("subscribe_expression_add_not_key");
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=tns1:A"));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventFilterSubscriptionsTest, AMissingDescriptionIsNotLookedAt)
{
    makeConsumer({"onvif:A"});
    failCall("subscribe_expression_serialize_xml");
    consumer->subscribeEventFilters();
    EXPECT_EQ(fakeSubscriptions().size(), 1U);
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventFilterSubscriptionsTest, ARefusedSubscriptionKeepsItsSlotUntilUnsubscribing)
{
    makeConsumer({"a", "b"});
    failCall("event_consumer_subscribe", 1);
    consumer->subscribeEventFilters();
    EXPECT_EQ(*slotOf(fakeSubscriptions().at(0)), 1);
    EXPECT_EQ(SubscriptionRegistry::instance().records().at(0).subscriptionId, -1);
    EXPECT_EQ(log.take(), Lines());
    consumer->unsubscribeEventFilters();
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to unsubscribe to subscription id: -1")});
}

TEST_F(EventFilterSubscriptionsTest, ASubscriptionWhoseIdCannotBeNotedIsEndedAtOnce)
{
    makeConsumer({"a"});
    bool failing = false;
    setFakeConsumerHook([&failing] { failing = true; });
    syncHooks().lockError = [&failing](const pthread_mutex_t *mutex) {
        const bool fails = failing && isWithin(SubscriptionRegistry::instance(), mutex);
        return fails ? EDEADLK : 0;
    };
    EXPECT_THROW(consumer->subscribeEventFilters(), std::system_error);
    syncHooks() = {};
    setFakeConsumerHook(nullptr);
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
    consumer->unsubscribeEventFilters();
    consumer->subscribeEventFilters();
    EXPECT_THAT(conditions(), ElementsAre("topic0=a !topic1"));
    EXPECT_EQ(*slotOf(fakeSubscriptions().at(0)), 0);
}

TEST_F(EventFilterSubscriptionsTest, Of515FiltersTheLastThreeAreLeftOut)
{
    makeConsumer();
    for (int number = 0; number < 515; ++number) {
        consumer->getPublicationConfig().setEventFilter(std::to_string(10000 + number),
                                                        {"onvif:A", 0, "none"});
    }
    consumer->subscribeEventFilters();
    EXPECT_EQ(fakeSubscriptions().size(), 512U);
    EXPECT_EQ(*slotOf(fakeSubscriptions().back()), 511);
    EXPECT_EQ(log.take(), (Lines{TOO_MANY, TOO_MANY, TOO_MANY}));
    EXPECT_EQ(fakeLivingObjects().expressions, 0);

    resetCalls();
    consumer->unsubscribeEventFilters();
    EXPECT_EQ(recordedCalls({"event_consumer_unsubscribe"}).size(), 512U);
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
}

TEST_F(EventFilterSubscriptionsTest, UnsubscribingEndsEverySubscriptionInTheOrderOfTheSlots)
{
    subscribe({"a", "b", "c"});
    const auto subscriptions = fakeSubscriptions();
    resetCalls();
    consumer->unsubscribeEventFilters();
    EXPECT_EQ(recordedCalls(),
              (Calls{"event_consumer_unsubscribe 0 0", "event_consumer_unsubscribe 1 0",
                     "event_consumer_unsubscribe 2 0"}));
    EXPECT_THAT(SubscriptionRegistry::instance().records(), IsEmpty());
    for (const auto &subscription : subscriptions) {
        EXPECT_EQ(*slotOf(subscription), -1);
    }
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventFilterSubscriptionsTest, ARefusedUnsubscriptionIsLoggedAndItsSlotIsFreeAllTheSame)
{
    subscribe({"a", "b", "c"});
    const auto subscriptions = fakeSubscriptions();
    failCall("event_consumer_unsubscribe", 2);
    consumer->unsubscribeEventFilters();
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to unsubscribe to subscription id: 1")});
    EXPECT_THAT(SubscriptionRegistry::instance().records(), IsEmpty());
    for (const auto &subscription : subscriptions) {
        EXPECT_EQ(*slotOf(subscription), -1);
    }
}

TEST_F(EventFilterSubscriptionsTest, UnsubscribingNothingDoesNothing)
{
    makeConsumer();
    resetCalls();
    consumer->unsubscribeEventFilters();
    EXPECT_EQ(recordedCalls(), Calls());
}

TEST_F(EventFilterSubscriptionsTest, SlotsAreUsedAgain)
{
    subscribe({"a", "b"});
    const auto former = fakeSubscriptions();
    consumer->unsubscribeEventFilters();
    consumer->subscribeEventFilters();
    EXPECT_EQ(fakeSubscriptions().at(0).userData, former.at(0).userData);
    EXPECT_EQ(fakeSubscriptions().at(1).userData, former.at(1).userData);
    EXPECT_EQ(fakeSubscriptions().at(0).id, 2);
}

TEST_F(EventFilterSubscriptionsTest, AKeptValueIsDeliveredWhileItsFilterIsBeingSubscribed)
{
    setFakeKeptValues([](const FakeSubscription &) {
        return std::vector<FakeReceivedEvent>{simpleEvent("kept")};
    });
    startConsumer({"onvif:Device"});
    activate(true);
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("kept"));
}

TEST_F(EventFilterSubscriptionsTest, AConfigurationReplacedMeanwhileIsNotUsed)
{
    makeConsumer({"a", "b"});
    int subscribed = 0;
    setFakeConsumerHook([&] {
        if (++subscribed == 1) {
            consumer->setPublicationConfig(PublicationConfig());
        }
    });
    consumer->subscribeEventFilters();
    setFakeConsumerHook(nullptr);
    EXPECT_THAT(conditions(), ElementsAre("topic0=a !topic1", "topic0=b !topic1"));
}

using EventFilterSubscriptionsDeathTest = EventFilterSubscriptionsTest;

TEST_F(EventFilterSubscriptionsDeathTest, ASlotBeyondTheTableIsFatal)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    makeConsumer();
    EXPECT_DEATH(
        {
            SubscriptionRegistry::instance().insert(512,
                                                    {consumer.get(), 1, 0, RetainPolicy::NONE});
            consumer->unsubscribeEventFilters();
        },
        "assertion failed");
}

} // namespace tovrel::test
