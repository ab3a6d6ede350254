/** The bridge with a part missing: before it runs, after it was quit, or without a producer. */
#include "fakes/call_record.h"
#include "fakes/fake_confutils.h"
#include "fakes/fake_mqtt.h"
#include "mqtt/config_paths.h"
#include "mqtt/subscription_file.h"
#include "unit/mqtt/running_bridge.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace tovrel::test {

namespace {

class IncompleteBridgeTest : public RunningBridgeTest {
protected:
    static SubscriptionStore twoItems()
    {
        SubscriptionStore store;
        store.addSubscription("state", true, 2, true);
        store.addSubscription("plain", false, 0, false);
        return store;
    }

    /** A run that ends at once leaves a client behind, but takes no collaborator over. */
    void giveItAClientAlone()
    {
        std::unique_ptr<BaseDbusHandler> noDbus;
        std::unique_ptr<BaseEventProducerHandler> noProducer;
        std::unique_ptr<BaseEventConsumerHandler> noConsumer;
        failCall("MQTTMsg_init", 1);
        bridge->run(noDbus, noProducer, noConsumer);
        log.take();
        resetCalls();
    }

    void expectReplaced()
    {
        EXPECT_EQ(bridge->getSubscriptions().items, twoItems().items);
        EXPECT_EQ(fakeConfutils().files.at(subscriptionsFile()).contents,
                  formatSubscriptions(twoItems().items));
    }

    /** Both failed calls of both items, as a replacement makes them without a client. */
    static Lines replacementLinesWithoutAClient()
    {
        return {failureLine("Failed to unsubscribe from topic '0': no handle"),
                failureLine("Failed to unsubscribe from topic '1': no handle"),
                failureLine("Failed to subscribe to topic '0': no handle"),
                failureLine("Failed to subscribe to topic '1': no handle")};
    }

    static Lines setupLinesWithoutAClient()
    {
        return {failureLine("Failed to subscribe to topic 'state': no handle"),
                failureLine("Failed to subscribe to topic 'plain': no handle")};
    }

    static std::string savePath()
    {
        return std::string("confutils_set_file_contents_with_sync_mode ") + subscriptionsFile();
    }
};

} // namespace

TEST_F(IncompleteBridgeTest, WithoutAProducerTheItemsAreSubscribedAndNothingIsDeclared)
{
    giveItAClientAlone();
    bridge->getSubscriptions() = twoItems();
    bridge->setupSubscriptions();
    EXPECT_EQ(recordedCalls(),
              (Calls{"MQTTMsg_subscribe state 2 1", "MQTTMsg_subscribe plain 0 0"}));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(IncompleteBridgeTest, WithoutAProducerAReplacementSavesAndSubscribes)
{
    giveItAClientAlone();
    bridge->getSubscriptions() = twoItems();
    bridge->replaceSubscriptions(twoItems());
    EXPECT_EQ(recordedCalls(),
              (Calls{savePath(), "MQTTMsg_unsubscribe state 1", "MQTTMsg_unsubscribe plain 0",
                     "MQTTMsg_subscribe state 2 1", "MQTTMsg_subscribe plain 0 0"}));
    EXPECT_EQ(log.take(), Lines());
    expectReplaced();
}

TEST_F(IncompleteBridgeTest, BeforeItRunsSettingUpLogsEachItemByItsFilter)
{
    bridge->getSubscriptions() = twoItems();
    bridge->setupSubscriptions();
    EXPECT_EQ(log.take(), setupLinesWithoutAClient());
}

TEST_F(IncompleteBridgeTest, BeforeItRunsAReplacementIsSavedAndSwappedInAndLogsEachItemByItsId)
{
    bridge->getSubscriptions() = twoItems();
    bridge->replaceSubscriptions(twoItems());
    EXPECT_EQ(log.take(), replacementLinesWithoutAClient());
    expectReplaced();
}

TEST_F(IncompleteBridgeTest, AfterQuittingSettingUpLogsEachItemByItsFilter)
{
    whileRunning([] {});
    log.take();
    bridge->getSubscriptions() = twoItems();
    bridge->setupSubscriptions();
    EXPECT_EQ(log.take(), setupLinesWithoutAClient());
}

TEST_F(IncompleteBridgeTest, AfterQuittingAReplacementIsSavedSwappedInAndDeclared)
{
    whileRunning([] {});
    log.take();
    bridge->getSubscriptions() = twoItems();
    resetCalls();
    bridge->replaceSubscriptions(twoItems());
    EXPECT_EQ(log.take(), replacementLinesWithoutAClient());
    expectReplaced();
    EXPECT_EQ(
        recordedCalls({"undeclareAllEvents", "declareStatefulEvent", "declareStatelessEvent"}),
        (Calls{"undeclareAllEvents", "declareStatefulEvent state 1",
               "declareStatelessEvent plain 0"}));
}

} // namespace tovrel::test
