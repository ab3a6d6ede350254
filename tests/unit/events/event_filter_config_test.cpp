#include "events/event_filter_config.h"

#include "events/publication_config.h"
#include "fakes/call_record.h"
#include "interfaces/exceptions.h"
#include "unit/events/broken_retain_policy.h"
#include "unit/events/config_texts.h"
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/log_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tovrel::test {

namespace {

using testing::ElementsAreArray;
using Texts = std::vector<std::string>;

struct FilterCase : NamedCase {
    std::string topicFilter;
    Texts segments;
};

FilterCase filterCase(const char *name, const std::string &topicFilter, const Texts &segments)
{
    return {{name}, topicFilter, segments};
}

class TopicFilter : public testing::TestWithParam<FilterCase> {};

} // namespace

TEST_P(TopicFilter, IsSplitIntoItsSegments)
{
    const ParsedTopicFilter parsed = parseTopicFilter(GetParam().topicFilter);
    EXPECT_THAT(segmentTexts(parsed.segments, parsed.matchSubtopics),
                ElementsAreArray(GetParam().segments));
}

TEST_P(TopicFilter, IsKeptAsItWasGiven)
{
    const EventFilterConfig filter(GetParam().topicFilter.c_str(), 1, "all");
    EXPECT_EQ(filter.getTopicFilter(), GetParam().topicFilter);
    EXPECT_THAT(segmentTexts(filter.getTopicSegments(), filter.getMatchSubtopics()),
                ElementsAreArray(GetParam().segments));
}

TEST(TopicFilterLimits, SegmentsAreKeptUpToTheOneThatNoEventServiceTakes)
{
    EXPECT_EQ(parseTopicFilter(std::string(MOST_TOPIC_SEGMENTS, '/')).segments.size(),
              MOST_TOPIC_SEGMENTS);
    EXPECT_EQ(parseTopicFilter(std::string(1'000'000, '/')).segments.size(),
              MOST_TOPIC_SEGMENTS + 1);
}

TEST(TopicFilterLimits, ALongNamespaceIsNotRepeatedForEachSegmentWithoutEnd)
{
    const std::string nameSpace(100'000, 'n');
    const auto parsed = parseTopicFilter(nameSpace + ":" + std::string(1000, '/'));
    EXPECT_EQ(parsed.segments.size(), MOST_TOPIC_BYTES / nameSpace.size() + 1);
}

TEST(TopicFilterLimits, TheEndOfALongTextStillDecidesAboutSubtopics)
{
    EXPECT_TRUE(parseTopicFilter(std::string(10'000, '/') + "a//.").matchSubtopics);
}

TEST(TopicFilterLimits, ChangingAFilterAgainAndAgainDoesNotTakeMoreAndMoreMemory)
{
    EventFilterConfig filter("first:a", 0, "none");
    for (int change = 0; change < 5; ++change) {
        filter.setTopicFilter(std::string(1000, '/') + "b");
    }
    EXPECT_EQ(filter.getTopicSegments().size(), MOST_TOPIC_SEGMENTS + 1);
    EXPECT_EQ(filter.getTopicSegments().front().second, "a");
    EXPECT_EQ(filter.getTopicFilter(), std::string(1000, '/') + "b");
}

INSTANTIATE_TEST_SUITE_P(
    Valid, TopicFilter,
    testing::Values(
        filterCase("OneSegment", "tns1:Device", {"tns1|Device"}),
        filterCase("NamespaceIsInherited", "tns1:Device/Alpha/tnsnorq:Beta",
                   {"tns1|Device", "tns1|Alpha", "tnsnorq|Beta"}),
        filterCase("NamespaceChangesBack", "a:x/b:y/a:z", {"a|x", "b|y", "a|z"}),
        filterCase("ShortNames", "onvif:Device/norq:Beta", {"onvif|Device", "norq|Beta"}),
        filterCase("Subtopics", "tns1:Device//.", {"tns1|Device", "//."}),
        filterCase("SubtopicsOfTwoSegments", "tns1:Device/tnsnorq:Beta//.",
                   {"tns1|Device", "tnsnorq|Beta", "//."}),
        filterCase("BlanksAndUmlauts", "tns1:A b/\xC3\xA5", {"tns1|A b", "tns1|\xC3\xA5"})),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Odd, TopicFilter,
    testing::Values(filterCase("Empty", "", {}), filterCase("NoNamespace", "Device", {"|Device"}),
                    filterCase("NamespaceOnlyFromTheSecondOn", "a/t:b/c", {"|a", "t|b", "t|c"}),
                    filterCase("EmptyMiddleSegment", "a//b", {"|a", "|", "|b"}),
                    filterCase("EmptySegmentInheritsToo", "t:a//b", {"t|a", "t|", "t|b"}),
                    filterCase("TrailingSlash", "tns1:A/", {"tns1|A"}),
                    filterCase("TwoTrailingSlashes", "tns1:A//", {"tns1|A", "tns1|"}),
                    filterCase("LeadingSlash", "/a", {"|", "|a"}),
                    filterCase("OnlyASlash", "/", {"|"}),
                    filterCase("TwoColonsInASegment", "a:b:c", {"b|c"}),
                    filterCase("EmptyNamespace", ":c", {"|c"}),
                    filterCase("EmptyNamespaceEndsInheritance", "t:a/:b/c", {"t|a", "|b", "|c"}),
                    filterCase("OnlyANamespace", "t:", {"t|"}),
                    filterCase("OnlyColons", "::", {"|"}),
                    filterCase("OnlyTheSubtopicsMark", "//.", {"//."}),
                    filterCase("SlashBeforeTheSubtopicsMark", "///.", {"|", "//."}),
                    filterCase("MqttWildcardsAreNames", "t:+/#", {"t|+", "t|#"})),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    LooksLikeSubtopicsButIsNot, TopicFilter,
    testing::Values(filterCase("OneSlash", "a/.", {"|a", "|."}), filterCase("Dot", ".", {"|."}),
                    filterCase("DotsAtTheEnd", "a//..", {"|a", "|", "|.."}),
                    filterCase("MarkInTheMiddle", "a//./b", {"|a", "|", "|.", "|b"}),
                    filterCase("MarkTwice", "a//.//.", {"|a", "|", "|.", "//."}),
                    filterCase("BlankAfterTheMark", "a//. ", {"|a", "|", "|. "}),
                    filterCase("DotStar", "a//.*", {"|a", "|", "|.*"})),
    CaseName());

TEST(EventFilter, HasItsTextsFromItsConstruction)
{
    const EventFilterConfig filter("tns1:Device//.", 2, "none");
    EXPECT_EQ(filterText(filter), "'tns1:Device//.' qos 2 retain none tns1|Device //.");
}

TEST(EventFilter, KeepsAQosOutsideOfMqttsRange)
{
    EventFilterConfig filter("a", -7, "none");
    EXPECT_EQ(filter.getQos(), -7);
    filter.setQos(99);
    EXPECT_EQ(filter.getQos(), 99);
}

TEST(EventFilter, RefusesNullTexts)
{
    for (const auto &[topicFilter, retain] :
         {std::pair<const char *, const char *>{nullptr, "all"}, {"a", nullptr}}) {
        try {
            const EventFilterConfig filter(topicFilter, 0, retain);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::logic_error &error) {
            EXPECT_STREQ(error.what(), "basic_string: construction from null is not valid");
        }
    }
}

TEST(EventFilter, AccumulatesTheSegmentsOfAChangedText)
{
    EventFilterConfig filter("tns1:Device//.", 0, "all");
    filter.setTopicFilter("norq:Beta/Gamma");
    EXPECT_EQ(filterText(filter), "'norq:Beta/Gamma' qos 0 retain all tns1|Device norq|Beta "
                                  "norq|Gamma //.");
    filter.setTopicFilter("a");
    EXPECT_EQ(filterText(filter), "'a' qos 0 retain all tns1|Device norq|Beta norq|Gamma |a //.");
}

TEST(EventFilter, MatchesSubtopicsFromTheFirstTextThatAsksForIt)
{
    EventFilterConfig filter("a", 0, "all");
    EXPECT_FALSE(filter.getMatchSubtopics());
    filter.setTopicFilter("b//.");
    EXPECT_TRUE(filter.getMatchSubtopics());
}

TEST(EventFilter, TakesItsOwnTextAsANewOne)
{
    EventFilterConfig filter("t:a", 0, "all");
    filter.setTopicFilter(filter.getTopicFilter());
    EXPECT_EQ(filterText(filter), "'t:a' qos 0 retain all t|a t|a");
}

namespace {

struct RetainCase : NamedCase {
    const char *text;
    RetainPolicy policy;
};

class RetainText : public testing::TestWithParam<RetainCase> {};
class UnknownRetainText : public testing::TestWithParam<const char *> {};

} // namespace

TEST_P(RetainText, NamesAPolicy)
{
    LogCapture log;
    const EventFilterConfig built("a", 0, GetParam().text);
    EXPECT_EQ(built.getRetainPolicy(), GetParam().policy);
    EXPECT_EQ(built.retainPolicyText(), GetParam().text);
    EventFilterConfig changed("a", 0, GetParam().policy == RetainPolicy::NONE ? "all" : "none");
    changed.setRetainPolicy(GetParam().text);
    EXPECT_EQ(changed.getRetainPolicy(), GetParam().policy);
    EXPECT_EQ(log.take(), Lines());
}

INSTANTIATE_TEST_SUITE_P(Texts, RetainText,
                         testing::Values(RetainCase{{"None"}, "none", RetainPolicy{0}},
                                         RetainCase{{"Property"}, "property", RetainPolicy{1}},
                                         RetainCase{{"All"}, "all", RetainPolicy{2}}),
                         CaseName());

TEST_P(UnknownRetainText, MeansPropertyWhenAFilterIsBuilt)
{
    LogCapture log;
    const EventFilterConfig filter("a", 0, GetParam());
    EXPECT_EQ(filter.getRetainPolicy(), RetainPolicy::PROPERTY);
    EXPECT_EQ(log.take(), Lines{failureLine("Invalid retain policy using 'property'")});
}

TEST_P(UnknownRetainText, IsRefusedWhenAFilterIsChanged)
{
    LogCapture log;
    EventFilterConfig filter("a", 0, "all");
    try {
        filter.setRetainPolicy(GetParam());
        ADD_FAILURE() << "nothing was thrown";
    } catch (const ConfigException &error) {
        EXPECT_STREQ(error.what(), "Invalid retain type");
    }
    EXPECT_EQ(filter.getRetainPolicy(), RetainPolicy::ALL);
    EXPECT_EQ(log.take(), Lines());
}

INSTANTIATE_TEST_SUITE_P(Texts, UnknownRetainText,
                         testing::Values("", "None", "ALL", "always", "all ", " none", "1",
                                         "propertyx"));

TEST(EventFilter, HasNoTextForAPolicyThatIsNone)
{
    for (const int value : {3, -1, 256}) {
        EventFilterConfig filter("a", 0, "all");
        breakRetainPolicy(filter, static_cast<RetainPolicy>(value));
        try {
            static_cast<void>(filter.retainPolicyText());
            ADD_FAILURE() << "nothing was thrown";
        } catch (const ConfigException &error) {
            EXPECT_STREQ(error.what(), "Invalid retain type");
        }
    }
}

TEST(EventFilter, WithAPolicyThatIsNoneKeepsItsConfigurationFromBeingSaved)
{
    resetCalls();
    PublicationConfig config;
    config.setEventFilter("0", {"a", 0, "all"});
    breakRetainPolicy(config.getEventFilter("0"), static_cast<RetainPolicy>(3));
    EXPECT_THROW(config.save(), ConfigException);
    EXPECT_EQ(recordedCalls(), Calls());
}

TEST(EventFilter, SharesThePolicyTexts)
{
    const EventFilterConfig one("a", 0, "all");
    const EventFilterConfig other("b", 1, "all");
    EXPECT_EQ(&one.retainPolicyText(), &other.retainPolicyText());
}

TEST(ConfigExceptionText, IsOwnedByTheException)
{
    std::string text = "a text that is longer than any text kept in place";
    const ConfigException error(text);
    text.assign(text.size(), 'x');
    EXPECT_STREQ(error.what(), "a text that is longer than any text kept in place");
    EXPECT_NE(dynamic_cast<const std::exception *>(&error), nullptr);
    static_assert(!std::is_base_of_v<std::runtime_error, ConfigException>);
}

} // namespace tovrel::test
