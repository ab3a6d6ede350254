/** What is wrong with a document is found before the service gets it. */
#include "tovrelctl/document_check.h"
#include "tovrelctl/failure.h"
#include "unit/tovrelctl/parsed.h"

#include <string>

namespace tovrelctl::test {

namespace {

std::string findingOf(const std::string &document)
{
    try {
        checkDocument(parsed(document).get());
    } catch (const Failure &finding) {
        return finding.what();
    }
    return {};
}

std::string subscriptions(const std::string &items)
{
    return R"({"subscription":)" + items + "}";
}

TEST(DocumentCheck, TakesWhatTheServiceExports)
{
    EXPECT_EQ(findingOf("{}"), "");
    EXPECT_EQ(findingOf(R"({"subscription":[],"publication":{}})"), "");
    EXPECT_EQ(
        findingOf(
            R"({"subscription":[{"id":"255","topicFilter":"a/#","qos":"QOS_2","isStateData":false,)"
            R"("useDeviceTopicPrefix":true}],"publication":{"topicPrefix":"none",)"
            R"("customTopicPrefix":"x","appendEventTopic":true,"includeTopicNamespaces":false,)"
            R"("includeSerialNumberInPayload":true,"eventFilter":[{"id":"0","topicFilter":"//.",)"
            R"("qos":"QOS_0","retain":"all"}]}})"),
        "");
}

TEST(DocumentCheck, NamesThePlaceOfWhatIsWrong)
{
    const std::pair<std::string, const char *> cases[] = {
        {"[]", "document: a JSON object is expected"},
        {R"({"deviceTopicPrefix":"x"})",
         "document: unknown field 'deviceTopicPrefix', expected one of publication, subscription"},
        {R"({"publication":[]})", "publication: a JSON object is expected"},
        {R"({"publication":{"topicPrefix":"other"}})",
         "publication.topicPrefix: one of default, custom, none is expected"},
        {R"({"publication":{"appendEventTopic":"yes"}})",
         "publication.appendEventTopic: true or false is expected"},
        {R"({"publication":{"customTopicPrefix":null}})",
         "publication.customTopicPrefix: a text is expected"},
        {R"({"publication":{"eventFilter":{}}})",
         "publication.eventFilter: a JSON array is expected"},
        {R"({"publication":{"eventFilter":[{"id":"1","retain":"some"}]}})",
         "publication.eventFilter[0].retain: one of none, property, all is expected"},
        {R"({"publication":{"qos":"QOS_0"}})",
         "publication: unknown field 'qos', expected one of topicPrefix, customTopicPrefix, "
         "appendEventTopic, includeTopicNamespaces, includeSerialNumberInPayload, eventFilter"},
        {subscriptions(R"([{"id":"1","topic":"a"}])"),
         "subscription[0]: unknown field 'topic', expected one of topicFilter, qos, isStateData, "
         "useDeviceTopicPrefix, id"},
        {subscriptions("{}"), "subscription: a JSON array is expected"},
        {subscriptions("[1]"), "subscription[0]: a JSON object is expected"},
        {subscriptions(R"([{"id":"1"},{"id":"2","qos":1}])"),
         "subscription[1].qos: one of QOS_0, QOS_1, QOS_2 is expected"},
        {subscriptions(R"([{"id":"1"},{"id":"1"}])"), "subscription[1]: the id 1 stands twice"},
        {subscriptions(R"([{"id":"1","topicFilter":"a\nb"}])"),
         "subscription 1: a topic filter with a line feed is not possible"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(findingOf(one.first), one.second) << one.first;
    }
}

TEST(DocumentCheck, TakesTheIdsThatTheServiceCanKeep)
{
    const std::string expected =
        "'id' has to be a text that begins with a number from 0 to 255 and has no line feed";
    for (const char *id : {R"("0")", R"("9")", R"("10")", R"("255")", R"("007")", R"("1a")"}) {
        EXPECT_EQ(findingOf(subscriptions(std::string(R"([{"id":)") + id + "}]")), "") << id;
    }
    for (const char *id : {R"("")", R"("256")", R"("-1")", R"("x")", R"("1\n")",
                           R"("1000000000000000000000")", "1", "null"}) {
        EXPECT_EQ(findingOf(subscriptions(std::string(R"([{"id":)") + id + "}]")),
                  "subscription[0]: " + expected)
            << id;
    }
    EXPECT_EQ(findingOf(subscriptions("[{}]")), "subscription[0]: 'id' is missing");
}

TEST(DocumentCheck, TakesTheFilterIdsThatTheServiceCanKeep)
{
    const auto filters = [](const std::string &id) {
        return R"({"publication":{"eventFilter":[{"id":)" + id + "}]}}";
    };
    for (const char *id : {R"("0")", R"("door")", R"("256")", R"(" ")"}) {
        EXPECT_EQ(findingOf(filters(id)), "") << id;
    }
    for (const char *id : {R"("")", R"("common")", R"("[")", R"("a]")", R"("a\tb")", "0"}) {
        EXPECT_EQ(findingOf(filters(id)),
                  "publication.eventFilter[0]: 'id' has to be a text, for example \"0\", that is "
                  "neither empty nor \"common\" and has no brackets or control characters")
            << id;
    }
    EXPECT_EQ(findingOf(R"({"publication":{"eventFilter":[{"topicFilter":"norq:A"}]}})"),
              "publication.eventFilter[0]: 'id' is missing");
}

TEST(DocumentCheck, LeavesTheLimitsToTheService)
{
    std::string items;
    for (int id = 0; id < 300; ++id) {
        items += (items.empty() ? "" : ",") + (R"({"id":"1 )" + std::to_string(id)) + R"("})";
    }
    EXPECT_EQ(findingOf(subscriptions("[" + items + "]")), "");
}

} // namespace

} // namespace tovrelctl::test
