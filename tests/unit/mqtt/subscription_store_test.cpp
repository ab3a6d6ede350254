#include "mqtt/subscription_store.h"

#include "fakes/call_record.h"
#include "interfaces/exceptions.h"
#include "unit/mqtt/case_name.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tovrel::test {

namespace {

template <typename Exception, typename Action>
void expectThrows(const char *message, Action &&action)
{
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception &error) {
        EXPECT_STREQ(error.what(), message);
    }
}

std::string add(SubscriptionStore &store, const std::string &topicFilter)
{
    return store.addSubscription(topicFilter, false, 0, false);
}

class SubscriptionStoreTest : public testing::Test {
protected:
    void SetUp() override { resetCalls(); }

    SubscriptionStore store;
};

} // namespace

TEST_F(SubscriptionStoreTest, StartsEmpty)
{
    EXPECT_TRUE(store.items.empty());
    EXPECT_EQ(store.allocateId(), "0");
}

TEST_F(SubscriptionStoreTest, HandsOutTheLowestFreeId)
{
    EXPECT_EQ(add(store, "a"), "0");
    EXPECT_EQ(add(store, "b"), "1");
    EXPECT_EQ(add(store, "c"), "2");
    store.items.erase("1");
    store.releaseId("1");
    EXPECT_EQ(add(store, "d"), "1");
    EXPECT_EQ(add(store, "e"), "3");
}

TEST_F(SubscriptionStoreTest, RefusesThe257thId)
{
    for (int expected = 0; expected < 256; ++expected) {
        ASSERT_EQ(store.allocateId(), std::to_string(expected));
    }
    expectThrows<NoSuchConfigException>("No available IDs", [&] { store.allocateId(); });
    expectThrows<NoSuchConfigException>("No available IDs", [&] { add(store, "a"); });
    EXPECT_TRUE(store.items.empty());
    store.releaseId("255");
    EXPECT_EQ(store.allocateId(), "255");
}

TEST_F(SubscriptionStoreTest, ReleasingAnIdLeavesItsItem)
{
    add(store, "a");
    store.releaseId("0");
    EXPECT_EQ(store.items.at("0").topicFilter, "a");
}

TEST_F(SubscriptionStoreTest, AnItemThatIsThereStaysWhenItsIdIsHandedOutAgain)
{
    add(store, "old");
    store.releaseId("0");
    EXPECT_EQ(store.addSubscription("new", true, 2, true), "0");
    EXPECT_EQ(store.items.at("0"), SubscriptionConfig{.topicFilter = "old"});
    EXPECT_EQ(store.items.size(), 1U);
    EXPECT_EQ(store.allocateId(), "1");
}

TEST_F(SubscriptionStoreTest, AddedItemsKeepAllTheirFields)
{
    store.addSubscription("a/+/#", true, 2, true);
    const SubscriptionConfig expected{
        .isStateData = true, .qos = 2, .useDeviceTopicPrefix = true, .topicFilter = "a/+/#"};
    EXPECT_EQ(store.items.at("0"), expected);
}

TEST_F(SubscriptionStoreTest, AFilterThatTheMqttClientRefusesTakesNoId)
{
    failCall("MQTTMsg_check_sub_topic", 1);
    expectThrows<SubscribeConfigException>("Invalid MQTT topic", [&] { add(store, "a/#/b"); });
    EXPECT_TRUE(store.items.empty());
    EXPECT_EQ(store.allocateId(), "0");
}

TEST_F(SubscriptionStoreTest, QosAndStatefulWildcardsAreLeftToTheCaller)
{
    EXPECT_EQ(store.addSubscription("#", false, 7, true), "0");
    EXPECT_EQ(store.items.at("0").qos, 7);
}

TEST_F(SubscriptionStoreTest, SetSubscriptionCreatesTakesTheIdAndDoesNotCheckTheFilter)
{
    failCall("MQTTMsg_check_sub_topic");
    store.setSubscription("1", "", true, 1, true);
    const SubscriptionConfig expected{
        .isStateData = true, .qos = 1, .useDeviceTopicPrefix = true, .topicFilter = ""};
    EXPECT_EQ(store.items.at("1"), expected);
    EXPECT_EQ(store.allocateId(), "0");
    EXPECT_EQ(store.allocateId(), "2");
}

TEST_F(SubscriptionStoreTest, SetSubscriptionOverwritesAllFields)
{
    store.setSubscription("7", "a", true, 1, true);
    store.setSubscription("7", "b", false, 2, false);
    EXPECT_EQ(store.items.at("7"), (SubscriptionConfig{.qos = 2, .topicFilter = "b"}));
}

TEST_F(SubscriptionStoreTest, SetSubscriptionKeepsTheIdTextAsGiven)
{
    store.setSubscription("007", "a", false, 0, false);
    store.setSubscription(" 8x", "b", false, 0, false);
    EXPECT_TRUE(store.items.contains("007"));
    EXPECT_TRUE(store.items.contains(" 8x"));
    for (const char *expected : {"0", "1", "2", "3", "4", "5", "6", "9"}) {
        EXPECT_EQ(store.allocateId(), expected);
    }
}

TEST_F(SubscriptionStoreTest, CopiesAreIndependent)
{
    add(store, "a");
    SubscriptionStore copy = store;
    EXPECT_EQ(add(copy, "b"), "1");
    copy.items.at("0").topicFilter = "changed";
    EXPECT_EQ(store.items.size(), 1U);
    EXPECT_EQ(store.items.at("0").topicFilter, "a");
    EXPECT_EQ(store.allocateId(), "1");
}

TEST_F(SubscriptionStoreTest, TwelveItemsAreWalkedInTheOrderOfTheirIdTexts)
{
    for (int count = 0; count < 12; ++count) {
        add(store, "t");
    }
    std::string order;
    for (const auto &[id, item] : store.items) {
        order += id + " ";
    }
    EXPECT_EQ(order, "0 1 10 11 2 3 4 5 6 7 8 9 ");
}

namespace {

struct BadId : NamedCase {
    const char *text;
};

class OutOfRangeId : public testing::TestWithParam<BadId> {};
class NoNumberId : public testing::TestWithParam<BadId> {};
class TooLargeId : public testing::TestWithParam<BadId> {};

template <typename Exception>
void expectRefused(const char *id, const char *message)
{
    SubscriptionStore store;
    expectThrows<Exception>(message, [&] { store.releaseId(id); });
    expectThrows<Exception>(message, [&] { store.setSubscription(id, "a", false, 0, false); });
    EXPECT_TRUE(store.items.empty());
    EXPECT_EQ(store.allocateId(), "0");
}

} // namespace

TEST_P(OutOfRangeId, IsAnInvalidId)
{
    expectRefused<SubscribeConfigException>(GetParam().text, "Invalid ID");
}

INSTANTIATE_TEST_SUITE_P(Ids, OutOfRangeId,
                         testing::Values(BadId{"FirstAbove", "256"}, BadId{"MinusOne", "-1"},
                                         BadId{"LargestInt", "2147483647"},
                                         BadId{"SmallestInt", "-2147483648"}),
                         CaseName());

TEST_P(NoNumberId, RaisesTheConversionError)
{
    expectRefused<std::invalid_argument>(GetParam().text, "stoi");
}

INSTANTIATE_TEST_SUITE_P(Ids, NoNumberId,
                         testing::Values(BadId{"Letters", "abc"}, BadId{"Empty", ""},
                                         BadId{"Blank", " "}, BadId{"OnlySign", "-"}),
                         CaseName());

TEST_P(TooLargeId, RaisesTheRangeError)
{
    expectRefused<std::out_of_range>(GetParam().text, "stoi");
}

INSTANTIATE_TEST_SUITE_P(Ids, TooLargeId,
                         testing::Values(BadId{"AboveInt", "2147483648"},
                                         BadId{"BelowInt", "-2147483649"}),
                         CaseName());

} // namespace tovrel::test
