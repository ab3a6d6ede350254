/** What is sent to the service of a document that is merged. */
#include "tovrelctl/document_changes.h"
#include "unit/tovrelctl/parsed.h"

#include <string>

namespace tovrelctl::test {

namespace {

std::string item(const std::string &id, const std::string &topicFilter)
{
    return R"({"id":")" + id + R"(","topicFilter":")" + topicFilter +
           R"(","qos":"QOS_0","isStateData":false,"useDeviceTopicPrefix":true})";
}

std::string filter(const std::string &qos)
{
    return R"({"id":"3","topicFilter":"onvif:A","qos":")" + qos + R"(","retain":"all"})";
}

std::string document(const std::string &items, const std::string &settings,
                     const std::string &filters)
{
    return R"({"subscription":[)" + items + R"(],"publication":{)" + settings +
           R"("eventFilter":[)" + filters + "]}}";
}

const std::string CURRENT =
    document(item("0", "a") + "," + item("1", "b"),
             R"("topicPrefix":"none","customTopicPrefix":"x",)", filter("QOS_2"));

std::string additionsOf(const std::string &after)
{
    return dump(additions(parsed(CURRENT).get(), parsed(after).get()).get(), false);
}

TEST(DocumentAdditions, OfTheSameAreNone)
{
    EXPECT_EQ(additionsOf(CURRENT), "{}");
    EXPECT_EQ(additionsOf("{}"), "{}");
}

TEST(DocumentAdditions, AreSettingsThatDiffer)
{
    EXPECT_EQ(additionsOf(R"({"publication":{"topicPrefix":"custom","customTopicPrefix":"x"}})"),
              R"({"publication":{"topicPrefix":"custom"}})");
}

TEST(DocumentAdditions, AreItemsThatAreNewOrDifferAndThoseWhole)
{
    EXPECT_EQ(additionsOf(document(item("0", "a") + "," + item("1", "c") + "," + item("2", "d"), "",
                                   filter("QOS_1"))),
              document(item("1", "c") + "," + item("2", "d"), "", filter("QOS_1")));
}

TEST(DocumentAdditions, AreFirstThoseThatDiffer)
{
    const std::string ten = item("10", "a");
    const std::string current = document(ten, "", "");
    const std::string after =
        document(item("2", "b") + "," + item("10", "c") + "," + item("11", "d"), "", "");
    EXPECT_EQ(dump(additions(parsed(current).get(), parsed(after).get()).get(), false),
              R"({"subscription":[)" + item("10", "c") + "," + item("2", "b") + "," +
                  item("11", "d") + "]}");
}

} // namespace

} // namespace tovrelctl::test
