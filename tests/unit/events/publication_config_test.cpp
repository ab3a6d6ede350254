#include "events/publication_config.h"

#include "interfaces/exceptions.h"
#include "unit/events/config_texts.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tovrel::test {

namespace {

using testing::ElementsAre;

EventFilterConfig filter(const char *topicFilter, int qos = 0)
{
    return {topicFilter, qos, "all"};
}

/** Message of the exception of a type that `action` throws; "" when it throws none. */
template <typename Exception, typename Action>
std::string messageOf(const Action &action)
{
    try {
        action();
    } catch (const Exception &error) {
        return error.what();
    }
    return "";
}

PublicationConfig fullConfig()
{
    PublicationConfig config;
    for (std::size_t count = 0; count < PublicationConfig::MAX_ITEMS; ++count) {
        config.addEventFilter(filter("t:a"));
    }
    return config;
}

} // namespace

TEST(PublicationConfigDefaults, AreThoseOfAFreshDevice)
{
    const PublicationConfig config;
    EXPECT_EQ(settingsText(config.getSettings()), "default '' topic 1 namespaces 1 serial 0");
    EXPECT_TRUE(config.getEventFilters().empty());
}

TEST(PublicationConfigIds, AreHandedOutLowestFirst)
{
    PublicationConfig config;
    EXPECT_EQ(config.allocateId(), "0");
    EXPECT_EQ(config.allocateId(), "1");
    EXPECT_EQ(config.allocateId(), "2");
    config.releaseId("1");
    EXPECT_EQ(config.allocateId(), "1");
    EXPECT_EQ(config.allocateId(), "3");
}

TEST(PublicationConfigIds, RunOutAfter256)
{
    PublicationConfig config;
    for (int count = 0; count < 256; ++count) {
        EXPECT_EQ(config.allocateId(), std::to_string(count));
    }
    EXPECT_EQ(messageOf<ConfigException>([&] { config.allocateId(); }), "No available IDs");
    config.releaseId("255");
    EXPECT_EQ(config.allocateId(), "255");
}

TEST(PublicationConfigIds, MayBeFreedWhenTheyAreFree)
{
    PublicationConfig config;
    config.releaseId("0");
    config.releaseId("255");
    EXPECT_EQ(config.allocateId(), "0");
}

namespace {

struct ReleaseCase : NamedCase {
    const char *text;
    int freed;
};

class ReleasableId : public testing::TestWithParam<ReleaseCase> {};
class IdOutsideOfTheTable : public testing::TestWithParam<const char *> {};
class IdThatIsNoNumber : public testing::TestWithParam<const char *> {};
class IdBeyondIntegers : public testing::TestWithParam<const char *> {};

} // namespace

TEST_P(ReleasableId, IsReadAsADecimalNumber)
{
    PublicationConfig config = fullConfig();
    config.releaseId(GetParam().text);
    EXPECT_EQ(config.allocateId(), std::to_string(GetParam().freed));
    EXPECT_THROW(config.allocateId(), ConfigException);
}

INSTANTIATE_TEST_SUITE_P(Texts, ReleasableId,
                         testing::Values(ReleaseCase{{"Lowest"}, "0", 0},
                                         ReleaseCase{{"Highest"}, "255", 255},
                                         ReleaseCase{{"LeadingZero"}, "007", 7},
                                         ReleaseCase{{"Sign"}, "+9", 9},
                                         ReleaseCase{{"LeadingBlank"}, " 42", 42},
                                         ReleaseCase{{"TrailingText"}, "12abc", 12},
                                         ReleaseCase{{"Fraction"}, "3.9", 3}),
                         CaseName());

TEST_P(IdOutsideOfTheTable, IsRefused)
{
    PublicationConfig config = fullConfig();
    EXPECT_EQ(messageOf<ConfigException>([&] { config.releaseId(GetParam()); }), "Invalid ID");
    EXPECT_THROW(config.allocateId(), ConfigException);
}

INSTANTIATE_TEST_SUITE_P(Texts, IdOutsideOfTheTable,
                         testing::Values("256", "-1", "-256", "1000", "2147483647", "-2147483648"));

TEST_P(IdThatIsNoNumber, RaisesTheStandardError)
{
    PublicationConfig config;
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { config.releaseId(GetParam()); }), "stoi");
}

INSTANTIATE_TEST_SUITE_P(Texts, IdThatIsNoNumber, testing::Values("abc", "", " ", "-", "x1"));

TEST_P(IdBeyondIntegers, RaisesTheStandardError)
{
    PublicationConfig config;
    EXPECT_EQ(messageOf<std::out_of_range>([&] { config.releaseId(GetParam()); }), "stoi");
}

INSTANTIATE_TEST_SUITE_P(Texts, IdBeyondIntegers,
                         testing::Values("2147483648", "-2147483649", "99999999999999999999"));

TEST(PublicationConfigFilters, AreOrderedByTheirIdsAsTexts)
{
    PublicationConfig config;
    for (int count = 0; count < 12; ++count) {
        config.addEventFilter(filter("t:a"));
    }
    std::string order;
    for (const auto &[id, item] : config.getEventFilters()) {
        order += id + " ";
    }
    EXPECT_EQ(order, "0 1 10 11 2 3 4 5 6 7 8 9 ");
}

TEST(PublicationConfigFilters, AreFoundByTheirId)
{
    PublicationConfig config;
    config.addEventFilter(filter("t:a", 2));
    EXPECT_EQ(std::as_const(config).getEventFilter("0").getQos(), 2);
    config.getEventFilter("0").setQos(1);
    EXPECT_EQ(std::as_const(config).getEventFilter("0").getQos(), 1);
}

TEST(PublicationConfigFilters, ThatAreMissingAreReportedOnGetting)
{
    PublicationConfig config;
    EXPECT_EQ(messageOf<NoSuchConfigException>([&] { config.getEventFilter("0"); }),
              "No such topic filter");
    EXPECT_EQ(messageOf<NoSuchConfigException>(
                  [&] { static_cast<void>(std::as_const(config).getEventFilter("")); }),
              "No such topic filter");
}

TEST(PublicationConfigFilters, ThatAreMissingAreReportedOnRemovingWithNothingChanged)
{
    PublicationConfig config;
    EXPECT_EQ(config.allocateId(), "0");
    EXPECT_EQ(messageOf<NoSuchConfigException>([&] { config.removeEventFilter("0"); }),
              "No such id");
    EXPECT_EQ(config.allocateId(), "1");
}

TEST(PublicationConfigFilters, AreReplacedUnderAGivenIdWithoutTakingIt)
{
    PublicationConfig config;
    config.setEventFilter("0", filter("t:a"));
    config.setEventFilter("0", filter("t:b"));
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:b' qos 0 retain all t|b"));
    EXPECT_EQ(config.allocateId(), "0");
}

TEST(PublicationConfigFilters, AddedUnderAnIdThatIsThereAreDroppedAndTheIdIsReturned)
{
    PublicationConfig config;
    config.setEventFilter("0", filter("t:loaded"));
    EXPECT_EQ(config.addEventFilter(filter("t:new")), "0");
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:loaded' qos 0 retain all t|loaded"));
    EXPECT_EQ(config.addEventFilter(filter("t:next")), "1");
    EXPECT_EQ(config.getEventFilters().size(), 2U);
}

TEST(PublicationConfigFilters, AreAtMost256)
{
    PublicationConfig config = fullConfig();
    EXPECT_EQ(messageOf<ConfigException>([&] { config.addEventFilter(filter("t:more")); }),
              "No available IDs");
    EXPECT_EQ(config.getEventFilters().size(), 256U);
}

TEST(PublicationConfigFilters, GiveTheirIdBackWhenTheyAreRemoved)
{
    PublicationConfig config;
    config.addEventFilter(filter("t:a"));
    config.addEventFilter(filter("t:b"));
    config.removeEventFilter("0");
    EXPECT_THAT(filterTexts(config), ElementsAre("1: 't:b' qos 0 retain all t|b"));
    EXPECT_EQ(config.addEventFilter(filter("t:c")), "0");
}

TEST(PublicationConfigFilters, WithAnIdThatIsNoNumberAreRemovedBeforeTheErrorIsRaised)
{
    PublicationConfig config;
    config.setEventFilter("x", filter("t:a"));
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { config.removeEventFilter("x"); }), "stoi");
    EXPECT_TRUE(config.getEventFilters().empty());
}

TEST(PublicationConfigFilters, MayBeRemovedByTheIdThatTheyAreStoredUnder)
{
    PublicationConfig config;
    config.addEventFilter(filter("t:a"));
    config.removeEventFilter(config.getEventFilters().begin()->first);
    EXPECT_TRUE(config.getEventFilters().empty());
    EXPECT_EQ(config.allocateId(), "0");
}

TEST(PublicationConfigSettings, ArePlainlyAssigned)
{
    PublicationConfig config;
    config.setTopicPrefixSetting("anything");
    config.setCustomTopicPrefix("a/#");
    config.setAppendEventTopic(false);
    config.setIncludeTopicNamespaces(false);
    config.setIncludeSerialNumberInPayload(true);
    EXPECT_EQ(settingsText(config.getSettings()), "anything 'a/#' topic 0 namespaces 0 serial 1");
}

TEST(PublicationConfigCopy, HoldsEverythingAndIsIndependent)
{
    PublicationConfig original;
    original.setCustomTopicPrefix("site");
    original.addEventFilter(filter("t:a"));
    PublicationConfig copy = original;
    EXPECT_EQ(copy.addEventFilter(filter("t:b")), "1");
    copy.getEventFilter("0").setQos(2);
    copy.setCustomTopicPrefix("other");
    EXPECT_THAT(filterTexts(original), ElementsAre("0: 't:a' qos 0 retain all t|a"));
    EXPECT_EQ(original.getSettings().customTopicPrefix, "site");

    original = copy;
    EXPECT_EQ(filterTexts(original), filterTexts(copy));
    EXPECT_EQ(original.getSettings().customTopicPrefix, "other");
    EXPECT_EQ(original.allocateId(), "2");
}

TEST(PublicationConfigCopy, OfItselfChangesNothing)
{
    PublicationConfig config = fullConfig();
    const auto &same = config;
    config = same;
    EXPECT_EQ(config.getEventFilters().size(), 256U);
    EXPECT_THROW(config.allocateId(), ConfigException);
}

} // namespace tovrel::test
