/** Answers of the service, good and hostile. */
#include "tovrelctl/answer.h"

#include "tovrelctl/failure.h"
#include "unit/tovrelctl/parsed.h"

#include <gmock/gmock.h>

#include <functional>

namespace tovrelctl::test {

namespace {

using testing::HasSubstr;
using testing::Not;

/** The failure's message; "" without one. */
std::string failureOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Refused &refusal) {
        return std::string("refused: ") + refusal.what();
    } catch (const Failure &failure) {
        return failure.what();
    }
    return {};
}

std::string failureOn(const std::string &answer)
{
    return failureOf([&] { dataOf(answer); });
}

TEST(Answer, GivesItsData)
{
    EXPECT_EQ(dump(dataOf(R"({"data":{"a":[1]}})").get(), false), R"({"a":[1]})");
    EXPECT_EQ(dump(dataOf(R"({"data":null})").get(), false), "null");
}

TEST(Answer, WithAnErrorIsTheServicesOwnMessage)
{
    EXPECT_EQ(failureOn(R"({"error":{"code":7,"message":"Too many"}})"), "refused: Too many");
    EXPECT_EQ(failureOn(R"({"data":1,"error":{"code":0,"message":""}})"), "refused: ");
}

/** What a person is told to do about the service's error. */
std::string adviceOn(const std::string &code, const std::string &message)
{
    try {
        dataOf(R"({"error":{"code":)" + code + R"(,"message":")" + message + R"("}})");
    } catch (const Refused &refusal) {
        return refusal.advice();
    }
    return "no refusal";
}

TEST(Answer, WithAnErrorOfAStoredValueTellsTheRemedy)
{
    EXPECT_THAT(adviceOn("0", "Property topicPrefix: Value x is not one of default, custom, none"),
                HasSubstr("tovrelctl set topicPrefix default"));
    EXPECT_THAT(adviceOn("0", "Property customTopicPrefix: Value is not valid UTF-8"),
                HasSubstr("tovrelctl set customTopicPrefix VALUE"));
    EXPECT_THAT(adviceOn("0", "Property topicFilter: Value is not valid UTF-8"),
                HasSubstr("tovrelctl subscription remove ID"));
    EXPECT_THAT(adviceOn("0", "Got invalid key to root.subscription[] from backend developer"),
                HasSubstr("mend the file"));
}

TEST(Answer, WithAnyOtherErrorTellsNoRemedy)
{
    EXPECT_EQ(adviceOn("5", "Property topicPrefix: Value x is not one of default, custom, none"),
              "");
    EXPECT_EQ(adviceOn("0", "Internal error"), "");
    EXPECT_EQ(adviceOn("0", "Property"), "");
}

TEST(Answer, ThatIsNoneIsSaidToBeNone)
{
    for (const char *answer :
         {"", " ", "{", "null", "[]", "7", "\"data\"", "{}", R"({"date":1})",
          R"({"data":1,"data":2})", R"({"data":1} x)", "{\"data\":\"\xff\"}", R"({"error":null})",
          R"({"error":{}})", R"({"error":"x"})", R"({"error":{"code":"7","message":"x"}})",
          R"({"error":{"code":7,"message":null}})"}) {
        EXPECT_THAT(failureOn(answer),
                    testing::StartsWith("tovrel's answer cannot be understood: "))
            << answer;
    }
}

TEST(Answer, IsNotRepeatedWhenItIsHuge)
{
    EXPECT_LT(failureOn(std::string(1000000, 'x')).size(), 200U);
    EXPECT_LT(failureOn(R"({"data")" + std::string(1000000, '[')).size(), 200U);
    EXPECT_THAT(failureOn(std::string(LONGEST_ANSWER + 1, ' ')), HasSubstr("longer than 24 MiB"));
    EXPECT_THAT(failureOn(std::string(LONGEST_ANSWER, ' ')), Not(HasSubstr("longer")));
}

std::string itemFinding(const std::string &item)
{
    return failureOf([&] { requireItem(parsed(item).get(), FILTER_FIELDS); });
}

TEST(Answer, HasItemsWithAllTheirFields)
{
    EXPECT_EQ(itemFinding(R"({"id":"0","topicFilter":"a","qos":"QOS_0","retain":"all","new":1})"),
              "");
    const std::pair<const char *, const char *> cases[] = {
        {"null", "an object is missing"},
        {"[]", "an object is missing"},
        {R"({"topicFilter":"a","qos":"QOS_0","retain":"all"})", "id is missing"},
        {R"({"id":0,"topicFilter":"a","qos":"QOS_0","retain":"all"})", "id is not a text"},
        {R"({"id":"0","qos":"QOS_0","retain":"all"})", "topicFilter is missing"},
        {R"({"id":"0","topicFilter":"a","qos":"QOS_3","retain":"all"})", "qos is not one of"},
        {R"({"id":"0","topicFilter":"a","qos":0,"retain":"all"})", "qos is not one of"},
        {R"({"id":"0","topicFilter":"a","qos":"QOS_0","retain":["all"]})", "retain is not one of"},
    };
    for (const auto &one : cases) {
        EXPECT_THAT(itemFinding(one.first), HasSubstr(one.second)) << one.first;
    }
}

TEST(Answer, HasListsOfItems)
{
    const auto findingOf = [](const std::string &items) {
        return failureOf([&] { requireItems(parsed(items).get(), FILTER_FIELDS); });
    };
    EXPECT_EQ(findingOf("[]"), "");
    EXPECT_THAT(findingOf("{}"), HasSubstr("a list is missing"));
    EXPECT_THAT(findingOf("[1]"), HasSubstr("an object is missing"));
}

TEST(Answer, HasTheWholeDocument)
{
    const auto findingOf = [](const std::string &document, bool withDevicePrefix) {
        return failureOf([&] { requireDocument(parsed(document).get(), withDevicePrefix); });
    };
    const std::string publication =
        R"("publication":{"topicPrefix":"none","customTopicPrefix":"","appendEventTopic":true,)"
        R"("includeTopicNamespaces":true,"includeSerialNumberInPayload":true,"eventFilter":[]})";
    EXPECT_EQ(findingOf(R"({"subscription":[],)" + publication + "}", false), "");
    EXPECT_EQ(findingOf(R"({"deviceTopicPrefix":"","subscription":[],)" + publication + "}", true),
              "");
    EXPECT_THAT(findingOf(R"({"subscription":[],)" + publication + "}", true),
                HasSubstr("deviceTopicPrefix is missing"));
    EXPECT_THAT(findingOf("{" + publication + "}", false), HasSubstr("a list is missing"));
    EXPECT_THAT(findingOf(R"({"subscription":[]})", false), HasSubstr("an object is missing"));
    EXPECT_THAT(findingOf(R"({"subscription":[],"publication":{"topicPrefix":"none"}})", false),
                HasSubstr("customTopicPrefix is missing"));
}

} // namespace

} // namespace tovrelctl::test
