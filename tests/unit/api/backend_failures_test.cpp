/** What the handlers do where the backend fails them: a field cannot be set, or is missing. */
#include "unit/api/handler_fixture.h"

#include <utility>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

class BackendFailures : public HandlerFixture {
protected:
    BackendFailures()
    {
        items.setSubscription("1", "one", true, 1, true);
        publication.setCustomTopicPrefix("site");
        publication.addEventFilter(EventFilterConfig("tns1:A", 1, "all"));
        showStores();
    }
};

TEST_F(BackendFailures, ThereMayBeNoFieldForTheDeviceTopicPrefix)
{
    failCall("gdt_tovrel_v2_deviceTopicPrefix");
    EXPECT_EQ(answer(R"("operation":"get")"),
              failure(0, "root.deviceTopicPrefix has not been set"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "device_topic_prefix is nullptr!"}));
}

TEST_F(BackendFailures, AnItemMayBeWithoutOneOfItsFields)
{
    for (const auto &[function, number] :
         {std::pair("dbh_string_set", 1U), std::pair("dbh_string_set", 2U),
          std::pair("dbh_string_set", 3U), std::pair("dbh_boolean_set", 1U),
          std::pair("dbh_boolean_set", 2U)}) {
        failCall(function, number);
        EXPECT_EQ(get(R"(["subscription","1"])"), failure(0, "scripted failure"));
        EXPECT_THAT(log.take(),
                    ElementsAre(LogLine{64, "Could not create response: scripted failure"}))
            << function << " " << number;
    }
}

TEST_F(BackendFailures, AnAddedItemIsKeptWhenItsIdCannotBeAnswered)
{
    expectReplacement();
    failCall("dbh_string_set", 1);
    EXPECT_EQ(add(R"(["subscription"])", R"({"topicFilter":"n"})"),
              failure(0, "Add item to root.subscription[]: Created key has not been set"));
    EXPECT_EQ(items.items.at("0").topicFilter, "n");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{64, "Could not create response: scripted failure"}));
}

TEST_F(BackendFailures, TheSettingsMayBeWithoutOneOfTheirFields)
{
    for (const auto &[function, number] :
         {std::pair("dbh_string_set", 1U), std::pair("dbh_string_set", 2U),
          std::pair("dbh_boolean_set", 1U), std::pair("dbh_boolean_set", 2U),
          std::pair("dbh_boolean_set", 3U)}) {
        failCall(function, number);
        EXPECT_EQ(get(R"(["publication"])"), failure(0, "scripted failure"));
        EXPECT_THAT(log.take(),
                    ElementsAre(LogLine{64, "Setting topic prefix setting to default"},
                                LogLine{64, "Cannot create response: scripted failure"}))
            << function << " " << number;
    }
}

TEST_F(BackendFailures, AFilterMayBeWithoutOneOfItsFields)
{
    for (const unsigned int number : {1U, 2U, 3U, 4U}) {
        failCall("dbh_string_set", number);
        EXPECT_EQ(get(R"(["publication","eventFilter","0"])"), failure(0, "scripted failure"));
        EXPECT_THAT(log.take(),
                    ElementsAre(LogLine{64, "Cannot create response: scripted failure"}))
            << number;
    }
}

TEST_F(BackendFailures, AnAddedFilterIsKeptButNeitherSavedNorAppliedWhenItsIdCannotBeAnswered)
{
    failCall("dbh_string_set", 1);
    EXPECT_EQ(add(R"(["publication","eventFilter"])", R"({"topicFilter":"n"})"),
              failure(0, "Did not get a proper ID for the created item."));
    EXPECT_EQ(publication.getEventFilter("1").getTopicFilter(), "n");
    EXPECT_EQ(saves(), 0U);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BackendFailures, AnItemWithoutAnIdEndsAnImportThatLeavesEverythingAsItWas)
{
    failCall("idt_tovrel_v2_subscription_id", 2);
    EXPECT_EQ(import(R"({"publication":{"customTopicPrefix":"x"},)"
                     R"("subscription":[{"id":"1"},{"id":"2"},{"id":"x"}]})"),
              failure(4, "Cannot import MQTT to event config without ID for the item"));
    EXPECT_EQ(items.items.size(), 1U);
    EXPECT_EQ(items.items.at("1").topicFilter, "one");
    EXPECT_EQ(publication.getSettings().customTopicPrefix, "site");
}

TEST_F(BackendFailures, AnItemWithoutAnIdEndsAReplacingImportThatLeavesTheConfigurationReset)
{
    expectReset();
    failCall("idt_tovrel_v2_subscription_id");
    EXPECT_EQ(import(R"({"publication":{"customTopicPrefix":"x","eventFilter":[{"id":"7"}]},)"
                     R"("subscription":[{"id":"2"}]})",
                     "replace"),
              failure(4, "Cannot import MQTT to event config without ID for the item"));
    EXPECT_TRUE(items.items.empty());
    EXPECT_EQ(publication.getSettings().customTopicPrefix, "");
    EXPECT_TRUE(publication.getEventFilters().empty());
}

} // namespace

} // namespace tovrel::test
