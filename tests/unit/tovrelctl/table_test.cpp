/** Tables on a terminal. */
#include "tovrelctl/table.h"

#include <gtest/gtest.h>

namespace tovrelctl::test {

namespace {

TEST(Table, HasColumnsAsWideAsTheirWidestText)
{
    Table table({"ID", "NAME", "X"});
    table.add({"1", "long name", "y"});
    table.add({"100", "", "z"});
    EXPECT_EQ(table.text(), "ID   NAME       X\n"
                            "1    long name  y\n"
                            "100             z\n");
}

TEST(Table, CountsPlacesOfTheTerminalAndNotBytes)
{
    Table table({"A", "B"});
    table.add({"ä", "1"});
    table.add({"日本", "2"});
    table.add({"e\u0301", "3"});
    EXPECT_EQ(table.text(), "A     B\n"
                            "ä     1\n"
                            "日本  2\n"
                            "e\u0301     3\n");
}

TEST(Table, WritesNoControlCharacterToATerminal)
{
    Table table({"A"});
    table.add({"a\033[31mb\nc\x7f"});
    EXPECT_EQ(table.text(), "A\na?[31mb?c?\n");
}

} // namespace

} // namespace tovrelctl::test
