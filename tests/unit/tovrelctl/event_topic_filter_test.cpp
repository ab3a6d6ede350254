/** Event filters that are kept and select nothing. */
#include "tovrelctl/event_topic_filter.h"

#include <gmock/gmock.h>

namespace tovrelctl::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(EventTopicFilter, IsRightWithANamespaceBeforeTheFirstLevel)
{
    for (const char *filter :
         {"norq:Door", "onvif:Device/norq:Door//.", "tns1:Device/Alpha", "//.", "other:Door",
          "norq:Door/", "onvif:norq:Door", "norq:a+b", "norq:t\u00fcr"}) {
        EXPECT_THAT(findingsOnEventTopic(filter), IsEmpty()) << filter;
    }
}

TEST(EventTopicFilter, WithoutANamespaceSelectsNothing)
{
    for (const char *filter : {"Door", ":Door", "Door/norq:Open", "Door//."}) {
        EXPECT_THAT(findingsOnEventTopic(filter), ElementsAre(HasSubstr("namespace"))) << filter;
    }
}

TEST(EventTopicFilter, HasAShortNameForTheNamespaceThatEventsShowInFull)
{
    for (const char *filter : {"tnsnorq:Door", "tns1:Device/tnsnorq:Door", "norq:A/tnsnorq:B//."}) {
        EXPECT_THAT(findingsOnEventTopic(filter), ElementsAre(HasSubstr("'norq:'"))) << filter;
    }
}

TEST(EventTopicFilter, HasNoWildcardsAndNoEmptyLevels)
{
    for (const char *filter : {"norq:Door/#", "norq:+/Open", "onvif:Device/norq:*", "norq:Door/.",
                               "norq:Door//./A", "norq:.", "norq:Door/#//."}) {
        EXPECT_THAT(findingsOnEventTopic(filter), ElementsAre(HasSubstr("//."))) << filter;
    }
    for (const char *filter : {"norq:", "norq:Door//Open", "norq:Door//", "norq:/Open"}) {
        EXPECT_THAT(findingsOnEventTopic(filter), ElementsAre(HasSubstr("empty"))) << filter;
    }
}

TEST(EventTopicFilter, ThatIsEmptySelectsNothing)
{
    EXPECT_THAT(findingsOnEventTopic(""), ElementsAre(HasSubstr("empty")));
}

TEST(EventTopicFilter, IsToldAllThatIsWrong)
{
    EXPECT_THAT(findingsOnEventTopic("#"), ElementsAre(HasSubstr("namespace"), HasSubstr("//.")));
    EXPECT_THAT(findingsOnEventTopic("/norq:Door"),
                ElementsAre(HasSubstr("namespace"), HasSubstr("empty")));
}

} // namespace

} // namespace tovrelctl::test
