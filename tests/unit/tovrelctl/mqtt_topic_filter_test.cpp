/** Topic filters that are kept and do nothing. */
#include "tovrelctl/mqtt_topic_filter.h"

#include <gmock/gmock.h>

namespace tovrelctl::test {

namespace {

using testing::HasSubstr;

TEST(MqttTopicFilter, IsRightWhenWildcardsStandAloneAndTheHashStandsLast)
{
    for (const char *filter :
         {"a", "/", "a/b", "+", "#", "a/+/b", "+/+", "a/#", "/#", "//", "$SYS/#"}) {
        EXPECT_EQ(findingOn(filter, false), "") << filter;
    }
    for (const char *filter : {"", "a+", "+a/b", "a/b#", "#/a", "a/#/b", "##", "++"}) {
        EXPECT_THAT(findingOn(filter, false), HasSubstr("no such topic filter")) << filter;
    }
}

TEST(MqttTopicFilter, OfAStatefulItemHasNoWildcards)
{
    EXPECT_EQ(findingOn("a/b", true), "");
    EXPECT_THAT(findingOn("a/+", true), HasSubstr("stateful"));
    EXPECT_THAT(findingOn("#", true), HasSubstr("stateful"));
}

TEST(MqttTopicFilter, LosesWhatStandsBehindABlank)
{
    EXPECT_THAT(findingOn("a b", false), HasSubstr("blank"));
}

} // namespace

} // namespace tovrelctl::test
