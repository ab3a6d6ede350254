/** Texts of others on a terminal. */
#include "tovrelctl/printable.h"

#include <gtest/gtest.h>

namespace tovrelctl::test {

namespace {

TEST(Printable, LeavesAloneWhatCanBeSeen)
{
    for (const char *text :
         {"", "a b/+/#", "Gärtnerei 日本 \U0001F331", "e\u0301", R"(back\slash)"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(Printable, EscapesWhatWouldDoSomethingToATerminal)
{
    EXPECT_EQ(printable("a\nb\tc\rd"), R"(a\nb\tc\rd)");
    EXPECT_EQ(printable("\033]0;title\007"), R"(\u001B]0;title\u0007)");
    EXPECT_EQ(printable("\u009b31m\u007f"), R"(\u009B31m\u007F)");
}

TEST(Printable, EscapesWhatTurnsOrHidesTheTextAround)
{
    EXPECT_EQ(printable("a\u202eb\u200bc\ufeff"), R"(a\u202Eb\u200Bc\uFEFF)");
    EXPECT_EQ(printable("a\u2028b\u2029"), R"(a\u2028b\u2029)");
    EXPECT_EQ(printable("\U000E0041"), R"(\uDB40\uDC41)");
}

TEST(Printable, MakesTextOfBytes)
{
    EXPECT_EQ(printable("a\xff\xc3"), "a\ufffd\ufffd");
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a\ufffdb");
}

} // namespace

} // namespace tovrelctl::test
