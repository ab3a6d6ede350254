#include "mqtt/event_bridge.h"

#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_confutils.h"
#include "fakes/fake_mqtt.h"
#include "interfaces/exceptions.h"
#include "mqtt/config_paths.h"
#include "mqtt/subscription_file.h"
#include "unit/mqtt/running_bridge.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace tovrel::test {

namespace {

using testing::Ref;
using testing::Return;

class EventBridgeTest : public RunningBridgeTest {
protected:
    /** Four kinds of items: stateful, stateless, stateless with either wildcard. */
    static SubscriptionStore fourItems()
    {
        SubscriptionStore store;
        store.addSubscription("state", true, 2, true);
        store.addSubscription("plain", false, 0, false);
        store.addSubscription("a/+/c", true, 1, false);
        store.addSubscription("d/#", false, 1, false);
        return store;
    }

    static std::string savePath()
    {
        return std::string("confutils_set_file_contents_with_sync_mode ") + subscriptionsFile();
    }
};

template <typename Action>
void expectNoConsumer(Action &&action)
{
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const EventBridgeException &error) {
        EXPECT_STREQ(error.what(), "No event consumption handler");
    }
}

} // namespace

TEST_F(EventBridgeTest, StartUpDeclaresTheStoredItemsAndSubscribesThemOnTheMainLoop)
{
    writeFile(subscriptionsFile(), "0\nstate\n1\n2\n1\n1\nplain\n0\n0\n0\n10\na/+/c\n1\n1\n0\n"
                                   "2\nd/#\n0\n1\n1\n");
    whileRunning([] {});
    EXPECT_EQ(startCalls,
              (Calls{"MQTTMsg_new2", "MQTTMsg_init 0",
                     std::string("confutils_sweep_temporary_files ") + subscriptionsFile(),
                     "declareStatefulEvent state 1", "declareStatelessEvent plain 0",
                     "declareStatefulEvent d/# 0", "start", "declareStatefulEvent state 1",
                     "MQTTMsg_subscribe state 2 1", "MQTTMsg_subscribe plain 0 0",
                     "MQTTMsg_subscribe a/+/c 1 1", "declareStatefulEvent d/# 0",
                     "MQTTMsg_subscribe d/# 1 0"}));
    EXPECT_EQ(startLines, Lines());
}

TEST_F(EventBridgeTest, StartUpMigratesTheLegacyFileAfterTheItemsWereLoaded)
{
    writeFile(subscriptionsFile(), "5\nloaded\n0\n0\n0\n");
    writeFile(legacySubscriptionsFile(), "former\n0\n0\n0\n");
    whileRunning([] {});
    EXPECT_EQ(startCalls,
              (Calls{"MQTTMsg_new2", "MQTTMsg_init 0",
                     std::string("confutils_sweep_temporary_files ") + subscriptionsFile(),
                     savePath(), "declareStatelessEvent former 0", "declareStatelessEvent loaded 0",
                     "start", "MQTTMsg_subscribe former 0 0", "MQTTMsg_subscribe loaded 0 0"}));
}

TEST_F(EventBridgeTest, LoadingDeclaresTheEmptyFilterAsStateless)
{
    writeFile(subscriptionsFile(), "0\n\n0\n0\n0\n");
    whileRunning([] {});
    EXPECT_EQ(startCalls.at(3), "declareStatelessEvent  0");
}

TEST_F(EventBridgeTest, WithoutAProducerLoadingDeclaresNothing)
{
    writeFile(subscriptionsFile(), "0\nstate\n0\n0\n1\n1\nplain\n0\n0\n0\n");
    bridge->loadSubscriptions();
    EXPECT_EQ(bridge->getSubscriptions().items.size(), 2U);
    EXPECT_EQ(recordedCalls(),
              Calls{std::string("confutils_sweep_temporary_files ") + subscriptionsFile()});
}

TEST_F(EventBridgeTest, ARefusedSubscriptionAtStartUpIsLoggedByItsFilterAndTheNextOneFollows)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        failCall("MQTTMsg_subscribe", 2);
        fakeMqtt().failureText = "not now";
        bridge->setupSubscriptions();
        EXPECT_EQ(recordedCalls(),
                  (Calls{"declareStatefulEvent state 1", "MQTTMsg_subscribe state 2 1",
                         "MQTTMsg_subscribe plain 0 0", "MQTTMsg_subscribe a/+/c 1 1",
                         "MQTTMsg_subscribe d/# 1 0"}));
    });
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to subscribe to topic 'plain': not now")});
}

TEST_F(EventBridgeTest, AReplacementSavesUndeclaresUnsubscribesDeclaresAndSubscribesInThatOrder)
{
    whileRunning([&] {
        SubscriptionStore old;
        old.addSubscription("old/#", true, 1, true);
        old.addSubscription("old", false, 1, false);
        bridge->getSubscriptions() = old;
        EXPECT_CALL(*consumer, eventFilterCount).WillOnce([] {
            recordCall("updateTerminationTask");
            return 1;
        });
        bridge->replaceSubscriptions(fourItems());
        EXPECT_EQ(recordedCalls(),
                  (Calls{savePath(), "undeclareAllEvents", "MQTTMsg_unsubscribe old/# 1",
                         "MQTTMsg_unsubscribe old 0", "declareStatefulEvent state 1",
                         "MQTTMsg_subscribe state 2 1", "declareStatelessEvent plain 0",
                         "MQTTMsg_subscribe plain 0 0", "MQTTMsg_subscribe a/+/c 1 1",
                         "MQTTMsg_subscribe d/# 1 0", "updateTerminationTask"}));
        EXPECT_EQ(bridge->getSubscriptions().items, fourItems().items);
        EXPECT_EQ(bridge->getSubscriptions().allocateId(), "4");
    });
    EXPECT_EQ(fakeConfutils().files.at(subscriptionsFile()).contents,
              formatSubscriptions(fourItems().items));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventBridgeTest, M7AReplacementWithTheSameItemsUnsubscribesAndSubscribesThemAll)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        bridge->replaceSubscriptions(fourItems());
        EXPECT_EQ(recordedCalls({"MQTTMsg_unsubscribe"}).size(), 4U);
        EXPECT_EQ(recordedCalls({"MQTTMsg_subscribe"}).size(), 4U);
    });
}

TEST_F(EventBridgeTest, TheLiveStoreCanReplaceItself)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        bridge->replaceSubscriptions(bridge->getSubscriptions());
        EXPECT_EQ(bridge->getSubscriptions().items, fourItems().items);
        EXPECT_EQ(recordedCalls({"MQTTMsg_subscribe"}).size(), 4U);
    });
}

TEST_F(EventBridgeTest, AReplacementDeclaresTheEmptyFilterAndNoStatelessWildcard)
{
    whileRunning([&] {
        SubscriptionStore store;
        store.setSubscription("0", "", false, 0, false);
        store.setSubscription("1", "a/+/c", false, 0, false);
        store.setSubscription("2", "#", false, 0, false);
        store.setSubscription("3", "a/b/c", false, 0, false);
        bridge->replaceSubscriptions(store);
        EXPECT_EQ(recordedCalls({"declareStatelessEvent", "declareStatefulEvent"}),
                  (Calls{"declareStatelessEvent  0", "declareStatelessEvent a/b/c 0"}));
    });
}

TEST_F(EventBridgeTest, AFailedSaveLeavesEverythingAsItWas)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        failCall("confutils_set_file_contents_with_sync_mode", 1);
        EXPECT_CALL(*consumer, eventFilterCount).Times(0);
        EXPECT_THROW(bridge->replaceSubscriptions({}), SubscribeConfigException);
        EXPECT_EQ(recordedCalls(), Calls{savePath()});
        EXPECT_EQ(bridge->getSubscriptions().items, fourItems().items);
    });
    EXPECT_EQ(log.take(), Lines{failureLine("Could not save MQTT-to-event configurations to file: "
                                            "Failed to write")});
}

TEST_F(EventBridgeTest, UnsubscribingWhatIsNotSubscribedIsSilent)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        failCall("MQTTMsg_unsubscribe");
        fakeMqtt().failureResult = 8;
        bridge->replaceSubscriptions({});
        EXPECT_EQ(recordedCalls({"MQTTMsg_unsubscribe"}).size(), 4U);
    });
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventBridgeTest, ARefusedUnsubscriptionIsLoggedByIdAndTheNextOneFollows)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        failCall("MQTTMsg_unsubscribe", 2);
        fakeMqtt().failureResult = 7;
        fakeMqtt().failureText = "no";
        bridge->replaceSubscriptions({});
        EXPECT_EQ(recordedCalls({"MQTTMsg_unsubscribe"}).size(), 4U);
    });
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to unsubscribe from topic '1': no")});
}

TEST_F(EventBridgeTest, ARefusedSubscriptionOfAReplacementIsLoggedByIdAndTheNextOneFollows)
{
    whileRunning([&] {
        failCall("MQTTMsg_subscribe", 3);
        fakeMqtt().failureText = "no";
        bridge->replaceSubscriptions(fourItems());
        EXPECT_EQ(recordedCalls({"MQTTMsg_subscribe"}).size(), 4U);
    });
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to subscribe to topic '2': no")});
}

TEST_F(EventBridgeTest, FailuresWithoutATextAreLoggedToo)
{
    whileRunning([&] {
        SubscriptionStore store;
        store.addSubscription("a", false, 0, false);
        bridge->getSubscriptions() = store;
        fakeMqtt().failureText.reset();
        failCall("MQTTMsg_unsubscribe");
        failCall("MQTTMsg_subscribe");
        bridge->replaceSubscriptions(store);
    });
    EXPECT_EQ(log.take(), (Lines{failureLine("Failed to unsubscribe from topic '0': "),
                                 failureLine("Failed to subscribe to topic '0': ")}));
}

TEST_F(EventBridgeTest, WithoutAConsumerPublicationOperationsThrow)
{
    expectNoConsumer([&] { bridge->setPublicationConfig({}); });
    expectNoConsumer([&] { bridge->refreshPublication(); });
    expectNoConsumer([&] { bridge->getPublicationConfig(); });
    expectNoConsumer([&] { std::as_const(*bridge).getPublicationConfig(); });
}

TEST_F(EventBridgeTest, APublicationConfigurationGoesToTheConsumerAndTerminationIsLookedAt)
{
    whileRunning([&] {
        const PublicationConfig config;
        const testing::InSequence inOrder;
        EXPECT_CALL(*consumer, setPublicationConfig(Ref(config)));
        EXPECT_CALL(*consumer, eventFilterCount).WillOnce(Return(1));
        bridge->setPublicationConfig(config);
    });
}

TEST_F(EventBridgeTest, RefreshingGoesToTheConsumerAndTerminationIsLookedAt)
{
    whileRunning([&] {
        const testing::InSequence inOrder;
        EXPECT_CALL(*consumer, refreshSubscriptions);
        EXPECT_CALL(*consumer, eventFilterCount).WillOnce(Return(1));
        bridge->refreshPublication();
    });
}

TEST_F(EventBridgeTest, TheLivePublicationConfigurationIsTheConsumers)
{
    whileRunning([&] {
        EXPECT_EQ(&bridge->getPublicationConfig(), &publication);
        EXPECT_EQ(&std::as_const(*bridge).getPublicationConfig(), &publication);
    });
}

TEST_F(EventBridgeTest, BothFormsGiveTheSameLiveStore)
{
    EXPECT_EQ(&bridge->getSubscriptions(), &std::as_const(*bridge).getSubscriptions());
}

TEST_F(EventBridgeTest, AResetEmptiesBothDirectionsAndDoesNothingElse)
{
    whileRunning([&] {
        bridge->getSubscriptions() = fourItems();
        publication.addEventFilter({"tns1:Device", 0, "none"});
        publication.setTopicPrefixSetting("custom");
        publication.setCustomTopicPrefix("mine");
        publication.setAppendEventTopic(false);
        publication.setIncludeTopicNamespaces(false);
        publication.setIncludeSerialNumberInPayload(true);
        EXPECT_CALL(*consumer, eventFilterCount).Times(0);
        bridge->resetConfiguration();
        EXPECT_EQ(recordedCalls(), Calls());
    });
    EXPECT_TRUE(bridge->getSubscriptions().items.empty());
    EXPECT_EQ(bridge->getSubscriptions().allocateId(), "0");
    EXPECT_EQ(publication.allocateId(), "0");
    EXPECT_TRUE(publication.getEventFilters().empty());
    const PublicationSettings &settings = publication.getSettings();
    EXPECT_EQ(settings.topicPrefixSetting, "default");
    EXPECT_EQ(settings.customTopicPrefix, "");
    EXPECT_TRUE(settings.appendEventTopic);
    EXPECT_TRUE(settings.includeTopicNamespaces);
    EXPECT_FALSE(settings.includeSerialNumberInPayload);
}

TEST_F(EventBridgeTest, WithoutAConsumerAResetEmptiesTheStore)
{
    bridge->getSubscriptions() = fourItems();
    bridge->resetConfiguration();
    EXPECT_TRUE(bridge->getSubscriptions().items.empty());
    EXPECT_EQ(bridge->getSubscriptions().allocateId(), "0");
}

TEST_F(EventBridgeTest, TheDeviceTopicPrefixIsLookedUpOnTheBus)
{
    EXPECT_EQ(bridge->getDeviceTopicPrefix(), "");
    whileRunning([&] {
        EXPECT_CALL(*dbus, getDeviceTopicPrefix).WillOnce(Return("site/7"));
        EXPECT_EQ(bridge->getDeviceTopicPrefix(), "site/7");
    });
}

} // namespace tovrel::test
