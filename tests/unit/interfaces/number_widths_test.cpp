#include <gtest/gtest.h>
#include <sys/types.h>

#include <ctime>
#include <limits>

// Of the machine's own choosing they are narrower on 32 bits: a time wraps in 2038, and stat() and
// readdir() fail for files that their file system has given a large number.

TEST(NumberWidths, HoldTimesPast2038)
{
    std::tm date{};
    date.tm_year = 2040 - 1900;
    date.tm_mday = 1;
    EXPECT_EQ(timegm(&date), 2'208'988'800);
}

TEST(NumberWidths, HoldEveryFileNumberSizeAndOffset)
{
    EXPECT_EQ(std::numeric_limits<ino_t>::digits, 64);
    EXPECT_EQ(std::numeric_limits<off_t>::digits, 63);
}
