/** What an import changes. */
#include "tovrelctl/document.h"
#include "unit/tovrelctl/parsed.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace tovrelctl::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *CURRENT =
    R"({"subscription":[{"id":"0","topicFilter":"a","qos":"QOS_1","isStateData":true,)"
    R"("useDeviceTopicPrefix":true},{"id":"1","topicFilter":"b","qos":"QOS_0",)"
    R"("isStateData":false,"useDeviceTopicPrefix":false}],)"
    R"("publication":{"topicPrefix":"custom","customTopicPrefix":"x","appendEventTopic":false,)"
    R"("includeTopicNamespaces":true,"includeSerialNumberInPayload":false,"eventFilter":[)"
    R"({"id":"3","topicFilter":"onvif:A","qos":"QOS_2","retain":"all"}]}})";

std::vector<std::string> changesOf(const std::string &imported, bool replace)
{
    const Json current = parsed(CURRENT);
    const Json after = predict(current.get(), parsed(imported).get(), replace);
    std::vector<std::string> lines;
    for (const Change &change : differences(current.get(), after.get())) {
        lines.push_back(change.what + ": " + change.before.value_or("nothing") + " -> " +
                        change.after.value_or("nothing"));
    }
    return lines;
}

TEST(DocumentChanges, OfAMergedDocumentWithoutNewsAreNone)
{
    EXPECT_THAT(changesOf("{}", false), IsEmpty());
    EXPECT_THAT(changesOf(CURRENT, false), IsEmpty());
}

TEST(DocumentChanges, OfAReplacementByTheSameAreNone)
{
    EXPECT_THAT(changesOf(CURRENT, true), IsEmpty());
}

TEST(DocumentChanges, OfAReplacementByNothingAreThoseToAFreshConfiguration)
{
    EXPECT_THAT(
        changesOf("{}", true),
        ElementsAre(
            R"(topicPrefix: "custom" -> "default")", R"(customTopicPrefix: "x" -> "")",
            "appendEventTopic: false -> true",
            R"(filter 3: topicFilter "onvif:A", qos "QOS_2", retain "all" -> nothing)",
            R"(subscription 0: topicFilter "a", qos "QOS_1", isStateData true, useDeviceTopicPrefix true -> nothing)",
            R"(subscription 1: topicFilter "b", qos "QOS_0", isStateData false, useDeviceTopicPrefix false -> nothing)"));
}

TEST(DocumentChanges, AMergedFilterKeepsWhatIsLeftOut)
{
    EXPECT_THAT(changesOf(R"({"publication":{"eventFilter":[{"id":"3","qos":"QOS_0"}]}})", false),
                ElementsAre(R"(filter 3: topicFilter "onvif:A", qos "QOS_2", retain "all" -> )"
                            R"(topicFilter "onvif:A", qos "QOS_0", retain "all")"));
}

TEST(DocumentChanges, AMergedSubscriptionIsReplacedWhole)
{
    EXPECT_THAT(
        changesOf(R"({"subscription":[{"id":"0","topicFilter":"new"}]})", false),
        ElementsAre(
            R"(subscription 0: topicFilter "a", qos "QOS_1", isStateData true, useDeviceTopicPrefix true -> )"
            R"(topicFilter "new", qos "QOS_0", isStateData false, useDeviceTopicPrefix false)"));
}

TEST(DocumentChanges, NewItemsHaveTheDefaultsOfTheService)
{
    EXPECT_THAT(
        changesOf(R"({"subscription":[{"id":"7"}],"publication":{"eventFilter":[{"id":"8"}]}})",
                  false),
        ElementsAre(
            R"(filter 8: nothing -> topicFilter "", qos "QOS_0", retain "property")",
            R"(subscription 7: nothing -> topicFilter "", qos "QOS_0", isStateData false, useDeviceTopicPrefix false)"));
}

TEST(DocumentChanges, ASettingIsChangedAlone)
{
    EXPECT_THAT(changesOf(R"({"publication":{"topicPrefix":"none"}})", false),
                ElementsAre(R"(topicPrefix: "custom" -> "none")"));
}

} // namespace

} // namespace tovrelctl::test
