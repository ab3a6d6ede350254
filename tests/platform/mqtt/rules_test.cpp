#include "mqtt/back_off.h"
#include "mqtt/keepalive_watch.h"
#include "mqtt/outbound_queue.h"
#include "mqtt/subscription_table.h"
#include "mqtt/topic_rules.h"

#include <gtest/gtest.h>

namespace norq::mqtt {
namespace {

using namespace std::chrono_literals;
using Action = KeepaliveWatch::Action;

TEST(MqttTopicRulesTest, ThePrefixIsPutInFrontWithOneSlash)
{
    EXPECT_EQ(withPrefix("p", "a", true), "p/a");
    EXPECT_EQ(withPrefix("p", "a", false), "a");
    EXPECT_EQ(withPrefix("", "a", true), "a");
    EXPECT_EQ(withPrefix("p", "/a", true), "p//a");
}

TEST(MqttTopicRulesTest, ThePrefixIsRecognisedOnlyWithSomethingBelowIt)
{
    EXPECT_TRUE(hasPrefix("p/q", "p/q/a"));
    EXPECT_FALSE(hasPrefix("p/q", "p/q/"));
    EXPECT_FALSE(hasPrefix("p/q", "p/q"));
    EXPECT_FALSE(hasPrefix("p/q", "p/qa/b"));
    EXPECT_FALSE(hasPrefix("", "a"));
}

TEST(MqttTopicRulesTest, SharedSubscriptionsMatchByTheirFilter)
{
    EXPECT_TRUE(filterMatches("$share/g/a/#", "a/b"));
    EXPECT_FALSE(filterMatches("$share/g/a/#", "b"));
    EXPECT_FALSE(filterMatches("$share/g", "g"));
    EXPECT_TRUE(filterMatches("$SYS/#", "$SYS/x"));
}

TEST(MqttBackOffTest, DoublesToItsMaximumWithJitterAndBeginsAnew)
{
    BackOff backOff;
    std::chrono::milliseconds step = 1s;
    for (int i = 0; i < 10; ++i) {
        const auto wait = backOff.next();
        EXPECT_GE(wait, step / 2);
        EXPECT_LE(wait, step);
        step = std::min<std::chrono::milliseconds>(step * 2, 30s);
    }
    backOff.reset();
    EXPECT_LE(backOff.next(), 1s);
}

TEST(MqttKeepaliveWatchTest, IsDueOnceForEachKeepaliveTimeWithoutTraffic)
{
    KeepaliveWatch watch(60s);
    watch.began(1'000'400ms);
    EXPECT_EQ(watch.next(), 1'060s);
    EXPECT_EQ(watch.due(1'059'999ms), Action::NOTHING);
    EXPECT_EQ(watch.due(1'060'000ms), Action::KEEP_ALIVE);
    watch.pinged(1'060'001ms);
    EXPECT_EQ(watch.next(), 1'120s);
    watch.received(1'060'050ms);
    EXPECT_EQ(watch.next(), 1'120s);
}

TEST(MqttKeepaliveWatchTest, TrafficInOneDirectionAloneDoesNotPostponeIt)
{
    KeepaliveWatch watch(10s);
    watch.began(100s);
    watch.wrote(109s);
    EXPECT_EQ(watch.next(), 110s);
    watch.received(109s);
    EXPECT_EQ(watch.next(), 119s);
}

TEST(MqttKeepaliveWatchTest, LooksAgainASecondLaterWhenNothingWasDone)
{
    KeepaliveWatch watch(10s);
    watch.began(100s);
    watch.postpone(110s);
    EXPECT_EQ(watch.due(110'500ms), Action::NOTHING);
    EXPECT_EQ(watch.due(111s), Action::KEEP_ALIVE);
}

TEST(MqttKeepaliveWatchTest, WithAPingBehindABacklogItAsksForASubstitute)
{
    KeepaliveWatch watch(10s);
    watch.began(100s);
    watch.heldBack(105s);
    EXPECT_EQ(watch.due(110s), Action::KEEP_ALIVE);
    watch.pinged(110s);
    watch.heldBack(120s);
    EXPECT_EQ(watch.due(120s), Action::SUBSTITUTE);
    watch.wrote(120s);
    watch.heldBack(130s);
    EXPECT_EQ(watch.due(130s), Action::SUBSTITUTE);
    watch.wrote(130s);
    // The backlog is read: quiet for a second means that the answer came with it.
    watch.received(135s);
    watch.caughtUp(135'500ms);
    EXPECT_EQ(watch.due(140s), Action::SUBSTITUTE);
    watch.caughtUp(136s);
    EXPECT_EQ(watch.due(140s), Action::KEEP_ALIVE);
}

TEST(MqttKeepaliveWatchTest, ABrokerThatIsSilentAfterTheBacklogIsFoundOut)
{
    KeepaliveWatch watch(10s);
    watch.began(100s);
    watch.pinged(104s);
    watch.heldBack(105s);
    watch.wrote(114s);
    EXPECT_EQ(watch.due(115s), Action::KEEP_ALIVE);
}

TEST(MqttOutboundQueueTest, APlaceIsTakenUntilTheMessageIsFinished)
{
    OutboundQueue queue(2, 100);
    EXPECT_TRUE(queue.push({"a", "xyz", 0, false}).ok());
    EXPECT_TRUE(queue.push({"b", "", 1, false}).ok());
    EXPECT_EQ(queue.push({"c", "", 0, false}).code, MQTTMSG_QUEUE_FULL);
    std::deque<OutboundMessage> taken;
    EXPECT_TRUE(queue.takeAll(taken));
    EXPECT_FALSE(queue.takeAll(taken));
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken[0].payload, "xyz");
    EXPECT_EQ(queue.checkRoom(1).code, MQTTMSG_QUEUE_FULL);
    queue.finish(1, taken[0].size());
    EXPECT_TRUE(queue.checkRoom(99).ok());
    EXPECT_EQ(queue.checkRoom(100).code, MQTTMSG_QUEUE_FULL);
    EXPECT_EQ(queue.checkRoom(101).code, MQTTMSG_TOO_LARGE);
    EXPECT_EQ(queue.unfinished(), 1U);
}

std::vector<std::pair<std::string, int>> changesOf(SubscriptionTable &table)
{
    std::vector<std::pair<std::string, int>> result;
    for (const SubscriptionTable::Change &change : table.takeChanges()) {
        result.emplace_back(change.filter, change.qos.value_or(-1));
    }
    return result;
}

using Changes = std::vector<std::pair<std::string, int>>;

TEST(MqttSubscriptionTableTest, TheBrokerKnowsAFilterOnceWithTheHigherQos)
{
    SubscriptionTable table;
    table.add("a", true, 0);
    table.add("a", false, 2);
    EXPECT_EQ(changesOf(table), (Changes{{"a", 2}}));
    EXPECT_EQ(changesOf(table), Changes{});
    EXPECT_TRUE(table.remove("a", false));
    EXPECT_EQ(changesOf(table), Changes{});
    EXPECT_TRUE(table.remove("a", true));
    EXPECT_FALSE(table.remove("a", true));
    EXPECT_EQ(changesOf(table), (Changes{{"a", -1}}));
}

TEST(MqttSubscriptionTableTest, WhatTheBrokerWasNeverToldNeedsNoUnsubscribing)
{
    SubscriptionTable table;
    table.add("a", false, 1);
    EXPECT_TRUE(table.remove("a", false));
    EXPECT_EQ(changesOf(table), Changes{});
}

TEST(MqttSubscriptionTableTest, SubscribingAgainReplacesAnUnsubscriptionUnderWay)
{
    SubscriptionTable table;
    table.add("a", false, 1);
    table.takeChanges();
    table.remove("a", false);
    table.add("a", false, 0);
    EXPECT_EQ(changesOf(table), (Changes{{"a", 0}}));
    table.remove("a", false);
    EXPECT_EQ(changesOf(table), (Changes{{"a", -1}}));
}

TEST(MqttSubscriptionTableTest, OnlyWhatIsNewAndStillWantedIsHandedOut)
{
    SubscriptionTable table;
    table.add("b", false, 1);
    table.takeChanges();
    table.add("c", false, 2);
    table.add("a", false, 0);
    table.add("d", true, 1);
    table.remove("d", true);
    EXPECT_EQ(changesOf(table), (Changes{{"a", 0}, {"c", 2}}));
    table.add("c", true, 0);
    table.remove("c", true);
    EXPECT_EQ(changesOf(table), (Changes{{"c", 2}}));
}

TEST(MqttSubscriptionTableTest, ANewConnectionSubscribesEverythingAgain)
{
    SubscriptionTable table;
    table.add("a", false, 1);
    table.add("b", false, 1);
    table.takeChanges();
    table.remove("b", false);
    table.connectionBegan(true);
    EXPECT_EQ(changesOf(table), (Changes{{"b", -1}, {"a", 1}}));
    table.remove("a", false);
    table.connectionBegan(false);
    EXPECT_EQ(changesOf(table), Changes{});
}

TEST(MqttSubscriptionTableTest, TheNumberOfFiltersIsBounded)
{
    SubscriptionTable table;
    for (std::size_t i = 0; i < SubscriptionTable::MAX_SUBSCRIPTIONS; ++i) {
        ASSERT_TRUE(table.add(std::to_string(i), false, 0));
    }
    EXPECT_FALSE(table.add("one more", false, 0));
    EXPECT_TRUE(table.add("1", true, 0));
}

} // namespace
} // namespace norq::mqtt
