/** What an import changes. */
#include "tovrelctl/document_changes.h"
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
        lines.push_back(describe(change));
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
    EXPECT_THAT(changesOf("{}", true),
                ElementsAre(R"(~ topicPrefix: "custom" -> "default")",
                            R"(~ customTopicPrefix: "x" -> "")",
                            "~ appendEventTopic: false -> true",
                            R"(- filter 3: topicFilter "onvif:A", qos "QOS_2", retain "all")",
                            R"(- subscription 0: topicFilter "a", qos "QOS_1", )"
                            "isStateData true, useDeviceTopicPrefix true",
                            R"(- subscription 1: topicFilter "b", qos "QOS_0", )"
                            "isStateData false, useDeviceTopicPrefix false"));
}

TEST(DocumentChanges, AMergedFilterKeepsWhatIsLeftOut)
{
    EXPECT_THAT(changesOf(R"({"publication":{"eventFilter":[{"id":"3","qos":"QOS_0"}]}})", false),
                ElementsAre(R"(~ filter 3: qos "QOS_2" -> "QOS_0")"));
}

TEST(DocumentChanges, AMergedSubscriptionIsReplacedWhole)
{
    EXPECT_THAT(
        changesOf(R"({"subscription":[{"id":"0","topicFilter":"new"}]})", false),
        ElementsAre(R"(~ subscription 0: topicFilter "a" -> "new", qos "QOS_1" -> "QOS_0", )"
                    "isStateData true -> false, useDeviceTopicPrefix true -> false"));
}

TEST(DocumentChanges, NewItemsHaveTheDefaultsOfTheService)
{
    EXPECT_THAT(
        changesOf(R"({"subscription":[{"id":"7"}],"publication":{"eventFilter":[{"id":"8"}]}})",
                  false),
        ElementsAre(R"(+ filter 8: topicFilter "", qos "QOS_0", retain "property")",
                    R"(+ subscription 7: topicFilter "", qos "QOS_0", isStateData false, )"
                    "useDeviceTopicPrefix false"));
}

TEST(DocumentChanges, ASettingIsChangedAlone)
{
    EXPECT_THAT(changesOf(R"({"publication":{"topicPrefix":"none"}})", false),
                ElementsAre(R"(~ topicPrefix: "custom" -> "none")"));
}

TEST(DocumentChanges, AreToldInTheOrderOfTheNumbersOfTheIds)
{
    EXPECT_THAT(
        changesOf(R"({"publication":{"eventFilter":[{"id":"10"},{"id":"9"},{"id":"x"}]}})", false),
        ElementsAre(testing::StartsWith("+ filter 9:"), testing::StartsWith("+ filter x:"),
                    testing::StartsWith("+ filter 10:")));
}

} // namespace

} // namespace tovrelctl::test
