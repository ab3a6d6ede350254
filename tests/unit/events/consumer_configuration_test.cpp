/** A configuration that changes while the consumer works. */
#include "events/event_consumer_handler.h"
#include "events/publication_paths.h"
#include "fakes/call_record.h"
#include "fakes/fake_confutils.h"
#include "interfaces/exceptions.h"
#include "support/wait_until.h"
#include "unit/events/broken_retain_policy.h"
#include "unit/events/config_texts.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/status_watch.h"
#include "unit/events/wrapped_sync.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace tovrel::test {

namespace {

using testing::IsEmpty;
using ConsumerConfigurationTest = ConsumerTest;

} // namespace

TEST_F(ConsumerConfigurationTest, AConfigurationSetWhileInactiveIsCopiedAndSavedOnly)
{
    makeConsumer();
    const StatusWatch watch(*consumer);
    const PublicationConfig newConfig = configWith("onvif:New");
    consumer->setPublicationConfig(newConfig); // before the start, so that nothing is overlooked
    consumer->start("SN1");
    ASSERT_TRUE(watch.waitForIdle());
    EXPECT_EQ(subscriptionCalls(), Calls{STATUS_SUBSCRIPTION});
    EXPECT_EQ(filterTexts(consumer->getPublicationConfig()), filterTexts(newConfig));
    EXPECT_EQ(settingsText(consumer->getPublicationConfig().getSettings()),
              settingsText(newConfig.getSettings()));
    EXPECT_EQ(consumer->getPublicationConfig().allocateId(), "1");
    EXPECT_THAT(fakeConfutils().files.at(publicationFile()).contents,
                testing::HasSubstr("topicFilter=onvif:New\n"));
    activate();
    EXPECT_EQ(subscriptionCalls(),
              (Calls{STATUS_SUBSCRIPTION, "event_consumer_subscribe 1 topic0=tns1:New !topic1"}));
    consumer.reset();
}

TEST_F(ConsumerConfigurationTest,
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

TEST_F(ConsumerConfigurationTest, AConfigurationThatCannotBeSavedIsAppliedAllTheSame)
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

TEST_F(ConsumerConfigurationTest, RefreshingWhileInactiveDoesNothing)
{
    makeConsumer({"onvif:A"});
    const StatusWatch watch(*consumer);
    consumer->refreshSubscriptions(); // before the start, so that nothing is overlooked
    EXPECT_EQ(watch.wakeUps(), 0);
    consumer->start("SN1");
    ASSERT_TRUE(watch.waitForIdle());
    EXPECT_EQ(subscriptionCalls(), Calls{STATUS_SUBSCRIPTION});
    consumer.reset();
}

TEST_F(ConsumerConfigurationTest,
       OneWithARetainPolicyThatIsNoneIsTakenOverAndNeitherSavedNorApplied)
{
    makeConsumer({"onvif:A"});
    const StatusWatch watch(*consumer);
    consumer->start("SN1");
    activate();
    const int before = watch.wakeUps();
    resetCalls();
    PublicationConfig broken = configWith("onvif:New");
    breakRetainPolicy(broken.getEventFilter("0"), static_cast<RetainPolicy>(3));
    EXPECT_THROW(consumer->setPublicationConfig(broken), ConfigException);
    EXPECT_EQ(consumer->getPublicationConfig().getEventFilter("0").getTopicFilter(), "onvif:New");
    EXPECT_EQ(consumer->getPublicationConfig().getSettings().customTopicPrefix, "site");
    EXPECT_EQ(watch.wakeUps(), before);
    EXPECT_EQ(recordedCalls(), Calls());
    consumer.reset();
}

TEST_F(ConsumerConfigurationTest, AFilterThatIsReplacedInPlaceChangesUnderTheLockAndStaysGuarded)
{
    makeConsumer({"onvif:A"});
    int locks = 0;
    syncHooks().afterLock = [this, &locks](const pthread_mutex_t *mutex) {
        locks += isWithin(*consumer, mutex) ? 1 : 0;
    };
    auto &filter = consumer->getPublicationConfig().getEventFilter("0");
    filter = EventFilterConfig("norq:B//.", 2, "all");
    EXPECT_EQ(locks, 1);
    EXPECT_EQ(filterText(filter), "'norq:B//.' qos 2 retain all norq|B //.");
    const EventFilterConfig other("t:c", 0, "none");
    filter = other;
    EXPECT_EQ(locks, 2);
    EXPECT_EQ(filterText(filter), filterText(other));
    filter.setQos(1);
    EXPECT_EQ(locks, 3);
    syncHooks() = {};
}

TEST_F(ConsumerConfigurationTest, RefreshingWhileActiveAppliesWhatWasChangedInPlace)
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

} // namespace tovrel::test
