/** Tables on a terminal. */
#include "tovrelctl/table.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace tovrelctl::test {

namespace {

constexpr std::size_t NO_LIMIT = std::numeric_limits<std::size_t>::max();

TEST(Table, HasColumnsAsWideAsTheirWidestText)
{
    Table table({"ID", "NAME", "X"});
    table.add({"1", "long name", "y"});
    table.add({"100", "", "z"});
    EXPECT_EQ(table.text(NO_LIMIT), "ID   NAME       X\n"
                                    "1    long name  y\n"
                                    "100             z\n");
}

TEST(Table, HasNoBlanksAtTheEndOfALine)
{
    Table table({"A", "B"});
    table.add({"1", ""});
    EXPECT_EQ(table.text(NO_LIMIT), "A  B\n1\n");
}

TEST(Table, CountsPlacesOfTheTerminalAndNotBytes)
{
    Table table({"A", "B"});
    table.add({"ä", "1"});
    table.add({"日本", "2"});
    table.add({"e\u0301", "3"});
    EXPECT_EQ(table.text(NO_LIMIT), "A     B\n"
                                    "ä     1\n"
                                    "日本  2\n"
                                    "e\u0301     3\n");
}

TEST(Table, WritesNoControlCharacterToATerminal)
{
    Table table({"A"});
    table.add({"a\033[31mb\nc\x7f"});
    EXPECT_EQ(table.text(NO_LIMIT), "A\na\\u001B[31mb\\nc\\u007F\n");
}

TEST(Table, CutsTheWidestTextsWhereTheTerminalIsTooNarrow)
{
    Table table({"ID", "TOPIC", "QOS"});
    table.add({"0", "building/+/temperature/of/the/room", "1"});
    table.add({"1", "日本日本日本日本日本日本日本", "1"});
    EXPECT_EQ(table.text(27), "ID  TOPIC               QOS\n"
                              "0   building/+/temp...  1\n"
                              "1   日本日本日本日...   1\n");
    EXPECT_EQ(table.text(28), "ID  TOPIC                QOS\n"
                              "0   building/+/tempe...  1\n"
                              "1   日本日本日本日本...  1\n");
}

TEST(Table, LeavesSomethingOfEveryTextToBeSeenHoweverNarrowTheTerminal)
{
    Table table({"ID", "TOPIC"});
    table.add({"0", "building/+/temperature"});
    EXPECT_EQ(table.text(1), "ID  TOPIC\n0   building/+...\n");
}

TEST(Table, StaysBoundedWithTheLongestTexts)
{
    Table table({"ID", "TOPIC"});
    for (int row = 0; row < 16; ++row) {
        table.add({std::to_string(row), std::string(65535, 'x')});
    }
    const std::string text = table.text(80);
    EXPECT_LT(text.size(), 17U * 81);
}

} // namespace

} // namespace tovrelctl::test
