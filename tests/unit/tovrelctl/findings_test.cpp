/** What is found in a document that the service takes. */
#include "tovrelctl/findings.h"
#include "unit/tovrelctl/parsed.h"

#include <gmock/gmock.h>

namespace tovrelctl::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

Findings findingsIn(const std::string &document)
{
    return findingsOnDocument(parsed(document).get());
}

TEST(Findings, AreNoneInADocumentThatIsRight)
{
    EXPECT_THAT(findingsIn("{}"), IsEmpty());
    EXPECT_THAT(findingsIn(R"({"subscription":[{"id":"0","topicFilter":"a/+"}],"publication":{)"
                           R"("customTopicPrefix":"plant/7","eventFilter":[)"
                           R"({"id":"1","topicFilter":"norq:Door"}]}})"),
                IsEmpty());
}

TEST(Findings, NameTheItem)
{
    EXPECT_THAT(findingsIn(R"({"subscription":[{"id":"0","topicFilter":"a"},)"
                           R"({"id":"7","topicFilter":"a b","isStateData":true},)"
                           R"({"id":"8","topicFilter":"+","isStateData":true}],)"
                           R"("publication":{"eventFilter":[{"id":"9","topicFilter":"Door"}]}})"),
                ElementsAre(StartsWith("filter 9: "), StartsWith("subscription 7: "),
                            StartsWith("subscription 8: stateful")));
}

TEST(Findings, AreMadeOfACustomPrefixThatNoTopicCanHave)
{
    for (const char *prefix : {"a/#", "+", "a\\tb"}) {
        EXPECT_THAT(
            findingsIn(R"({"publication":{"customTopicPrefix":")" + std::string(prefix) + R"("}})"),
            ElementsAre(StartsWith("customTopicPrefix: ")))
            << prefix;
    }
    EXPECT_THAT(findingsIn(R"({"publication":{"customTopicPrefix":""}})"), IsEmpty());
}

} // namespace

} // namespace tovrelctl::test
