/** Requests about the configuration as a whole. */
#include "unit/api/handler_fixture.h"

using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::Throw;

namespace tovrel::test {

namespace {

class RootHandlers : public HandlerFixture {
protected:
    /** Expects an import to be applied, and takes it over. */
    void expectApplied()
    {
        const InSequence inOrder;
        expectReplacement();
        EXPECT_CALL(bridge, setPublicationConfig).WillOnce([this](const PublicationConfig &config) {
            publication = config;
        });
        EXPECT_CALL(bridge, refreshPublication);
    }

    static std::string list(std::size_t count, const std::string &collection)
    {
        std::string elements;
        for (std::size_t id = 0; id < count; ++id) {
            elements += (id == 0 ? "" : ",") + (R"({"id":")" + std::to_string(id) + R"("})");
        }
        return "\"" + collection + "\":[" + elements + "]";
    }
};

TEST_F(RootHandlers, GetTheWholeDocument)
{
    items.setSubscription("0", "a", false, 0, false);
    showStores();
    EXPECT_CALL(bridge, getDeviceTopicPrefix).WillOnce(Return("norq/1"));
    EXPECT_EQ(answer(R"("operation":"get")"),
              R"({"data":{"deviceTopicPrefix":"norq/1",)"
              R"("subscription":[{"id":"0","topicFilter":"a","qos":"QOS_0","isStateData":false,)"
              R"("useDeviceTopicPrefix":false}],)"
              R"("publication":{"topicPrefix":"default","customTopicPrefix":"",)"
              R"("appendEventTopic":true,"includeTopicNamespaces":true,)"
              R"("includeSerialNumberInPayload":false,"eventFilter":[]}}})");
}

TEST_F(RootHandlers, LogADeviceTopicPrefixThatIsNotText)
{
    EXPECT_CALL(bridge, getDeviceTopicPrefix).WillOnce(Return("\xFF"));
    EXPECT_EQ(answer(R"("operation":"get")"),
              failure(0, "Property deviceTopicPrefix: Value is not valid UTF-8"));
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Could not set the device topic prefix property"}));
}

TEST_F(RootHandlers, ExportADocumentThatCanBeImportedAsItStands)
{
    items.setSubscription("3", "a", true, 1, true);
    publication.setEventFilter("7", EventFilterConfig("tns1:A", 2, "none"));
    publication.setCustomTopicPrefix("x");
    showStores();
    EXPECT_CALL(bridge, getDeviceTopicPrefix).WillRepeatedly(Return("norq/1"));
    const std::string exported = answer(R"("operation":"get","options":{"omitReadOnly":true})");
    EXPECT_EQ(exported.find("deviceTopicPrefix"), std::string::npos);
    const SubscriptionStore::Items before = items.items;

    expectReset();
    expectApplied();
    const std::string prefix = R"({"data":)";
    const std::string document =
        exported.substr(prefix.size(), exported.size() - prefix.size() - 1);
    EXPECT_EQ(import(document, "replace"), DONE);
    EXPECT_EQ(items.items, before);
    EXPECT_EQ(answer(R"("operation":"get","options":{"omitReadOnly":true})"), exported);
}

TEST_F(RootHandlers, ImportIntoWhatIsThere)
{
    items.setSubscription("1", "one", true, 1, true);
    items.setSubscription("2", "two", true, 1, true);
    publication.setEventFilter("1", EventFilterConfig("tns1:A", 0, "all"));
    showStores();
    expectApplied();
    EXPECT_EQ(import(R"({"subscription":[{"id":"2"},{"id":"5","topicFilter":"new","qos":"QOS_2",)"
                     R"("isStateData":true,"useDeviceTopicPrefix":true}],"publication":{)"
                     R"("topicPrefix":"none","eventFilter":[{"id":"1","qos":"QOS_2"},)"
                     R"({"id":"8","topicFilter":"tns1:N","retain":"none"},{"id":"9"}]}})"),
              DONE);
    EXPECT_EQ(items.items.at("1").topicFilter, "one");
    EXPECT_EQ(items.items.at("2"), SubscriptionConfig());
    const SubscriptionConfig expected{
        .isStateData = true, .qos = 2, .useDeviceTopicPrefix = true, .topicFilter = "new"};
    EXPECT_EQ(items.items.at("5"), expected);
    EXPECT_EQ(publication.getSettings().topicPrefixSetting, "");
    const EventFilterConfig &kept = publication.getEventFilter("1");
    EXPECT_EQ(kept.getTopicFilter(), "tns1:A");
    EXPECT_EQ(kept.getQos(), 2);
    EXPECT_EQ(kept.getRetainPolicy(), RetainPolicy::ALL);
    const EventFilterConfig &added = publication.getEventFilter("8");
    EXPECT_EQ(added.getTopicSegments().size(), 1U);
    EXPECT_EQ(added.getQos(), 0);
    EXPECT_EQ(added.getRetainPolicy(), RetainPolicy::NONE);
    EXPECT_EQ(publication.getEventFilter("9").getTopicFilter(), "");
    EXPECT_EQ(publication.getEventFilter("9").getRetainPolicy(), RetainPolicy::PROPERTY);
}

TEST_F(RootHandlers, ImportInThePlaceOfWhatIsThere)
{
    items.setSubscription("1", "one", true, 1, true);
    showStores();
    expectReset();
    expectApplied();
    EXPECT_EQ(import("{}", "replace"), DONE);
    EXPECT_TRUE(items.items.empty());
}

TEST_F(RootHandlers, LeaveEverythingAsItWasWhenAnItemIsRefused)
{
    items.setSubscription("1", "one", true, 1, true);
    showStores();
    EXPECT_EQ(import(R"({"publication":{"customTopicPrefix":"x"},)"
                     R"("subscription":[{"id":"2"},{"id":"256"}]})"),
              failure(0, "Cannot import MQTT to event config - internal error"));
    EXPECT_EQ(items.items.size(), 1U);
    EXPECT_EQ(publication.getSettings().customTopicPrefix, "");
}

TEST_F(RootHandlers, LeaveTheConfigurationResetWhenAReplacingImportFails)
{
    items.setSubscription("1", "one", true, 1, true);
    showStores();
    expectReset();
    EXPECT_EQ(import(R"({"subscription":[{"id":"x"}]})", "replace"),
              failure(0, "Cannot import MQTT to event config - internal error"));
    EXPECT_TRUE(items.items.empty());
}

TEST_F(RootHandlers, ImportThePublicationBeforeTheItems)
{
    showStores();
    EXPECT_EQ(import(R"({"publication":{"eventFilter":[{"id":""}]},"subscription":[{"id":"x"}]})"),
              failure(0, "Could not perform import"));
    EXPECT_EQ(import(R"({"subscription":[{"id":"x"}],"publication":{"eventFilter":[{"id":""}]}})"),
              failure(0, "Could not perform import"));
}

TEST_F(RootHandlers, ResetNothingWhenTheDocumentItselfIsRefused)
{
    EXPECT_EQ(import(R"({"subscription":[{"topicFilter":"a"}]})", "replace"),
              failure(5, "Import item to root.subscription[]: Missing required property id"));
}

TEST_F(RootHandlers, ImportAtMost256OfEach)
{
    showStores();
    expectApplied();
    EXPECT_EQ(import("{" + list(256, "subscription") + R"(,"publication":{)" +
                     list(256, "eventFilter") + "}}"),
              DONE);
    EXPECT_EQ(items.items.size(), 256U);
    EXPECT_EQ(publication.getEventFilters().size(), 256U);
    EXPECT_EQ(import(R"({"subscription":[{"id":"0"}]})"),
              failure(7, "Too many MQTT-to-event configurations"));
    EXPECT_EQ(import(R"({"publication":{"eventFilter":[{"id":"0"}]}})"),
              failure(7, "Too many event-to-MQTT configurations"));
}

TEST_F(RootHandlers, RefuseIdsThatNoFileCanHold)
{
    showStores();
    for (const char *const id : {"", "common", "a]", "[b", "a\\nb"}) {
        EXPECT_EQ(
            import(R"({"publication":{"eventFilter":[{"id":")" + std::string(id) + R"("}]}})"),
            failure(0, "Could not perform import"))
            << id;
    }
    EXPECT_EQ(import(R"({"subscription":[{"id":"1\n"}]})"),
              failure(0, "Cannot import MQTT to event config - internal error"));
    EXPECT_EQ(import(R"({"subscription":[{"id":"1","topicFilter":"a\n0"}]})"),
              failure(0, "Cannot import MQTT to event config - internal error"));
}

TEST_F(RootHandlers, ApplyNoPublicationWhenTheItemsCannotBeUsed)
{
    showStores();
    EXPECT_CALL(bridge, replaceSubscriptions)
        .WillOnce(Throw(SubscribeConfigException("Could not store configuration")));
    EXPECT_EQ(import("{}"),
              failure(0, "Cannot use imported MQTT to event config - internal error"));
}

TEST_F(RootHandlers, AnswerAMissingConsumerAsAFailedImport)
{
    EXPECT_CALL(testing::Const(bridge), getPublicationConfig())
        .WillOnce(Throw(EventBridgeException("No event consumption handler")));
    EXPECT_EQ(import("{}"), failure(0, "Could not perform import"));
}

} // namespace

} // namespace tovrel::test
