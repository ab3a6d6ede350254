/** Topic filters that are kept and do nothing. */
#include "tovrelctl/mqtt_topic_filter.h"

#include <gmock/gmock.h>

namespace tovrelctl::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(MqttTopicFilter, IsRightWhenWildcardsStandAloneAndTheHashStandsLast)
{
    for (const char *filter :
         {"a", "/", "a/b", "+", "#", "a/+/b", "+/+", "a/#", "/#", "//", "$SYS/#", "t\u00fcr"}) {
        EXPECT_THAT(findingsOnMqttTopic(filter, false), IsEmpty()) << filter;
    }
    for (const char *filter : {"", "a+", "+a/b", "a/b#", "#/a", "a/#/b", "##", "++"}) {
        EXPECT_THAT(findingsOnMqttTopic(filter, false),
                    ElementsAre(HasSubstr("no such topic filter")))
            << filter;
    }
}

TEST(MqttTopicFilter, HasNoControlCharacters)
{
    for (const char *filter : {"a\x01", "a\x7f", "a\u009f"}) {
        EXPECT_THAT(findingsOnMqttTopic(filter, false),
                    ElementsAre(HasSubstr("no such topic filter")))
            << filter;
    }
}

TEST(MqttTopicFilter, OfAStatefulItemHasNoWildcards)
{
    EXPECT_THAT(findingsOnMqttTopic("a/b", true), IsEmpty());
    EXPECT_THAT(findingsOnMqttTopic("a/+", true), ElementsAre(HasSubstr("stateful")));
    EXPECT_THAT(findingsOnMqttTopic("#", true), ElementsAre(HasSubstr("stateful")));
}

TEST(MqttTopicFilter, LosesAllButItsFirstWord)
{
    const std::pair<const char *, const char *> cases[] = {
        {"a b", "'a'"}, {" a b", "'a'"}, {"a ", "'a'"}, {" ", "''"}, {"a/+ /b", "'a/+'"}};
    for (const auto &[filter, rest] : cases) {
        EXPECT_THAT(findingsOnMqttTopic(filter, false), testing::Contains(HasSubstr(rest)))
            << filter;
    }
    EXPECT_THAT(findingsOnMqttTopic("a\u00a0b", false), IsEmpty());
}

TEST(MqttTopicFilter, IsToldAllThatIsWrong)
{
    for (const char *filter : {"a\tb", "a\rb", "a\vb", "a\fb", "a b/c+"}) {
        EXPECT_THAT(findingsOnMqttTopic(filter, false),
                    ElementsAre(HasSubstr("no such topic filter"), HasSubstr("'a'")))
            << filter;
    }
    EXPECT_THAT(findingsOnMqttTopic("+ b/+", true),
                ElementsAre(HasSubstr("no such topic filter"), HasSubstr("'+'")));
    EXPECT_THAT(findingsOnMqttTopic("a b/+", true),
                ElementsAre(HasSubstr("stateful"), HasSubstr("'a'")));
}

} // namespace

} // namespace tovrelctl::test
