/** Requests about MQTT-to-event items. */
#include "unit/api/handler_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Throw;

namespace tovrel::test {

namespace {

class SubscriptionHandlers : public HandlerFixture {
protected:
    SubscriptionHandlers()
    {
        items.setSubscription("2", "a/b", true, 1, false);
        items.setSubscription("10", "c/+", false, 7, true);
    }

    void fillUp(std::size_t count)
    {
        for (std::size_t id = 0; items.items.size() < count; ++id) {
            items.setSubscription(std::to_string(id), "x", false, 0, false);
        }
    }
};

const std::string ITEM_2 =
    R"({"id":"2","topicFilter":"a/b","qos":"QOS_1","isStateData":false,"useDeviceTopicPrefix":true})";
const std::string ITEM_10 =
    R"({"id":"10","topicFilter":"c/+","qos":"QOS_2","isStateData":true,"useDeviceTopicPrefix":false})";

TEST_F(SubscriptionHandlers, ListTheItemsInTheOrderOfTheirIdsAsTexts)
{
    showStores();
    EXPECT_EQ(listKeys(R"(["subscription"])"), R"({"data":[)" + ITEM_10 + "," + ITEM_2 + "]}");
}

TEST_F(SubscriptionHandlers, GetAnItem)
{
    showStores();
    EXPECT_EQ(get(R"(["subscription","2"])"), R"({"data":)" + ITEM_2 + "}");
    EXPECT_EQ(get(R"(["subscription","10"])"), R"({"data":)" + ITEM_10 + "}");
}

TEST_F(SubscriptionHandlers, GetNoItemThatIsNotThere)
{
    showStores();
    EXPECT_EQ(get(R"(["subscription","3"])"), failure(2, "Subscription does not exist"));
}

TEST_F(SubscriptionHandlers, CannotGetAFilterThatIsNotText)
{
    items.setSubscription("3", "a\xFF", false, 0, false);
    showStores();
    EXPECT_EQ(get(R"(["subscription","3"])"),
              failure(0, "Property topicFilter: Value is not valid UTF-8"));
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{64, "Could not create response: Property topicFilter: Value is "
                                        "not valid UTF-8"}));
}

TEST_F(SubscriptionHandlers, AnswerAnExceptionOfTheBridgeAsAnInternalError)
{
    EXPECT_CALL(testing::Const(bridge), getSubscriptions())
        .WillRepeatedly(Throw(std::runtime_error("no store")));
    EXPECT_CALL(bridge, getSubscriptions()).WillRepeatedly(Throw(std::runtime_error("no store")));
    EXPECT_EQ(listKeys(R"(["subscription"])"), failure(0, "Internal error"));
    EXPECT_EQ(get(R"(["subscription","2"])"), failure(0, "Cannot get item - internal error"));
    EXPECT_EQ(set(R"(["subscription","2"])", "{}"), failure(0, "Cannot get item - internal error"));
    EXPECT_EQ(remove(R"(["subscription","2"])"), failure(0, "Cannot remove item - internal error"));
}

TEST_F(SubscriptionHandlers, SetThePropertiesThatARequestHasAndReplaceTheStore)
{
    showStores();
    expectReplacement();
    EXPECT_EQ(set(R"(["subscription","2"])", R"({"qos":"QOS_2"})"), DONE);
    const SubscriptionConfig expected{
        .isStateData = false, .qos = 2, .useDeviceTopicPrefix = true, .topicFilter = "a/b"};
    EXPECT_EQ(items.items.at("2"), expected);
}

TEST_F(SubscriptionHandlers, SetEveryProperty)
{
    showStores();
    expectReplacement();
    EXPECT_EQ(set(R"(["subscription","2"])",
                  R"({"topicFilter":"n","qos":"QOS_0","isStateData":true,)"
                  R"("useDeviceTopicPrefix":false})"),
              DONE);
    const SubscriptionConfig expected{
        .isStateData = true, .qos = 0, .useDeviceTopicPrefix = false, .topicFilter = "n"};
    EXPECT_EQ(items.items.at("2"), expected);
}

TEST_F(SubscriptionHandlers, SetTheLiveItemAlsoWhenItCannotBeStored)
{
    showStores();
    EXPECT_CALL(bridge, replaceSubscriptions)
        .WillOnce(Throw(SubscribeConfigException("Could not store configuration")));
    EXPECT_EQ(set(R"(["subscription","2"])", R"({"topicFilter":"n"})"),
              failure(0, "Cannot get item - internal error"));
    EXPECT_EQ(items.items.at("2").topicFilter, "n");
}

TEST_F(SubscriptionHandlers, SetNoItemThatIsNotThere)
{
    showStores();
    EXPECT_EQ(set(R"(["subscription","3"])", R"({"qos":"QOS_2"})"),
              failure(2, "Subscription does not exist"));
}

TEST_F(SubscriptionHandlers, SetNoFilterThatDoesNotFitIntoALineOfTheFile)
{
    showStores();
    EXPECT_EQ(set(R"(["subscription","2"])", R"({"topicFilter":"a\n0\nb"})"),
              failure(0, "Cannot get item - internal error"));
    EXPECT_EQ(items.items.at("2").topicFilter, "a/b");
}

TEST_F(SubscriptionHandlers, AddAnItemWithDefaultsAndAnswerWithIt)
{
    showStores();
    expectReplacement();
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"n"})"),
              R"({"data":{"id":"0","topicFilter":"n","qos":"QOS_0","isStateData":false,)"
              R"("useDeviceTopicPrefix":false}})");
    EXPECT_EQ(items.items.size(), 3U);
}

TEST_F(SubscriptionHandlers, AddAnItemWithAllProperties)
{
    showStores();
    expectReplacement();
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"n","qos":"QOS_2","isStateData":true,)"
                                         R"("useDeviceTopicPrefix":true})"),
              R"({"data":{"id":"0","topicFilter":"n","qos":"QOS_2","isStateData":true,)"
              R"("useDeviceTopicPrefix":true}})");
}

TEST_F(SubscriptionHandlers, AddNothingWithoutATopicFilter)
{
    EXPECT_EQ(add(R"(["subscription"])", R"({"qos":"QOS_0"})"),
              failure(5, "Add item to root.subscription[]: Missing required property "
                         "topicFilter"));
}

TEST_F(SubscriptionHandlers, AddThe256thItemAndNoMore)
{
    fillUp(255);
    showStores();
    expectReplacement();
    EXPECT_NE(add(R"(["subscription"])", R"({"topicFilter":"last"})").find("\"last\""),
              std::string::npos);
    EXPECT_EQ(items.items.size(), 256U);
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"n"})"),
              failure(7, "Cannot add MQTT to event config - too many created"));
}

TEST_F(SubscriptionHandlers, AddNothingThatTheStoreOrTheBridgeRejects)
{
    showStores();
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"a#b"})"),
              failure(5, "Invalid MQTT topic"));
    EXPECT_CALL(bridge, replaceSubscriptions)
        .WillOnce(Throw(SubscribeConfigException("Could not store configuration")));
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"n"})"),
              failure(5, "Could not store configuration"));
    EXPECT_EQ(items.items.size(), 2U);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(SubscriptionHandlers, AddNothingWhenTheBridgeFailsOtherwise)
{
    showStores();
    EXPECT_CALL(bridge, replaceSubscriptions).WillOnce(Throw(std::runtime_error("broken")));
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"n"})"), failure(0, "Internal error"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{16, "Could not add new subscription: broken"}));
}

TEST_F(SubscriptionHandlers, RemoveAnItemAndFreeItsId)
{
    showStores();
    items.setSubscription("0", "x", false, 0, false);
    expectReplacement();
    EXPECT_EQ(remove(R"(["subscription","0"])"), DONE);
    EXPECT_EQ(items.items.count("0"), 0U);
    EXPECT_EQ(items.allocateId(), "0");
}

TEST_F(SubscriptionHandlers, RemoveNoItemThatIsNotThere)
{
    showStores();
    EXPECT_EQ(remove(R"(["subscription","3"])"),
              failure(2, "Cannot remove item - it does not exist"));
}

TEST_F(SubscriptionHandlers, RemoveNothingWhenTheBridgeFails)
{
    showStores();
    EXPECT_CALL(bridge, replaceSubscriptions)
        .WillOnce(Throw(SubscribeConfigException("Could not store configuration")));
    EXPECT_EQ(remove(R"(["subscription","2"])"), failure(0, "Cannot remove item - internal error"));
    EXPECT_EQ(items.items.size(), 2U);
}

TEST_F(SubscriptionHandlers, CannotRemoveAnItemWhoseIdIsNoNumber)
{
    items.items["x"] = SubscriptionConfig();
    showStores();
    EXPECT_EQ(remove(R"(["subscription","x"])"), failure(0, "Cannot remove item - internal error"));
    EXPECT_EQ(items.items.count("x"), 1U);
}

} // namespace

} // namespace tovrel::test
