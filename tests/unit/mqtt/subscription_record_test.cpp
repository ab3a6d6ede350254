/** How single lines and unfinished records of the configuration file are read. */
#include "unit/mqtt/subscription_file_fixture.h"

#include <climits>
#include <sstream>
#include <string>

namespace tovrel::test {

namespace {

struct FieldCase : NamedCase {
    const char *line;
    int expected;
};

SubscriptionConfig readOne(const std::string &record)
{
    std::istringstream stream(record);
    SubscriptionStore::Items items;
    readSubscriptions(stream, items);
    return items.at("0");
}

class FlagLine : public testing::TestWithParam<FieldCase> {};
class QosLine : public testing::TestWithParam<FieldCase> {};

struct TopicCase : NamedCase {
    const char *line;
    const char *expected;
};

class TopicLine : public testing::TestWithParam<TopicCase> {};

} // namespace

TEST_P(FlagLine, IsExtractedAsAStreamBoolean)
{
    const std::string line = GetParam().line;
    const bool expected = GetParam().expected != 0;
    EXPECT_EQ(readOne("0\na\n" + line + "\n0\n0\n").useDeviceTopicPrefix, expected);
    EXPECT_EQ(readOne("0\na\n0\n0\n" + line + "\n").isStateData, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, FlagLine,
    testing::Values(FieldCase{{"Zero"}, "0", 0}, FieldCase{{"One"}, "1", 1},
                    FieldCase{{"OtherNumberIsTrue"}, "2", 1},
                    FieldCase{{"NegativeIsTrue"}, "-1", 1}, FieldCase{{"WordIsFalse"}, "true", 0},
                    FieldCase{{"EmptyIsFalse"}, "", 0}, FieldCase{{"BlankIsFalse"}, "   ", 0},
                    FieldCase{{"LeadingBlank"}, "  1", 1},
                    FieldCase{{"TrailingText"}, "1 or so", 1}, FieldCase{{"LeadingZero"}, "01", 1},
                    FieldCase{{"CarriageReturn"}, "1\r", 1},
                    FieldCase{{"HugeIsTrue"}, "99999999999999999999", 1}),
    CaseName());

TEST_P(QosLine, IsExtractedAsAnInteger)
{
    EXPECT_EQ(readOne(std::string("0\na\n0\n") + GetParam().line + "\n0\n").qos,
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Lines, QosLine,
                         testing::Values(FieldCase{{"Two"}, "2", 2},
                                         FieldCase{{"Negative"}, "-5", -5},
                                         FieldCase{{"OutsideOfMqtt"}, "17", 17},
                                         FieldCase{{"Word"}, "qos", 0}, FieldCase{{"Empty"}, "", 0},
                                         FieldCase{{"TrailingText"}, "1x", 1},
                                         FieldCase{{"LeadingBlank"}, "\t 2", 2},
                                         FieldCase{{"TooLarge"}, "2147483648", INT_MAX},
                                         FieldCase{{"TooSmall"}, "-2147483649", INT_MIN}),
                         CaseName());

TEST_P(TopicLine, IsReadUpToItsFirstBlank)
{
    EXPECT_EQ(readOne(std::string("0\n") + GetParam().line + "\n0\n0\n0\n").topicFilter,
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, TopicLine,
    testing::Values(TopicCase{{"Plain"}, "a/b", "a/b"}, TopicCase{{"InnerBlank"}, "a b/c", "a"},
                    TopicCase{{"LeadingBlank"}, "  a", "a"}, TopicCase{{"Tabulator"}, "a\tb", "a"},
                    TopicCase{{"CarriageReturn"}, "a\r", "a"}, TopicCase{{"Empty"}, "", ""}),
    CaseName());

namespace {

class TruncatedFile : public testing::TestWithParam<TruncatedCase> {};

} // namespace

TEST_P(TruncatedFile, KeepsTheRecordsBeforeAndWarns)
{
    LogCapture log;
    std::istringstream stream(std::string("5\nwhole\n1\n1\n1\n") + GetParam().text);
    SubscriptionStore::Items items;
    readSubscriptions(stream, items);
    EXPECT_EQ(items, (SubscriptionStore::Items{{"5", item("whole", true, 1, true)}}));
    EXPECT_EQ(log.take(), Lines{warningLine(GetParam().warning)});
}

INSTANTIATE_TEST_SUITE_P(
    Files, TruncatedFile,
    testing::Values(TruncatedCase{{"AfterId"}, "0\n", "Missing topic"},
                    TruncatedCase{{"WithinId"}, "0", "Missing topic"},
                    TruncatedCase{{"AfterTopic"}, "0\na\n", "Missing device_prefix_flag"},
                    TruncatedCase{{"AfterFlag"}, "0\na\n0\n", "Missing qos"},
                    TruncatedCase{{"AfterQos"}, "0\na\n0\n0\n", "Missing stateful flag"},
                    TruncatedCase{{"WithinQos"}, "0\na\n0\n0", "Missing stateful flag"},
                    TruncatedCase{{"EmptyLineAtTheEnd"}, "\n", "Missing topic"}),
    CaseName());

} // namespace tovrel::test
