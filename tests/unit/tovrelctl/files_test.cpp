/** Files that are read and written whole. */
#include "tovrelctl/files.h"

#include "support/temp_directory.h"
#include "tovrelctl/failure.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace tovrelctl::test {

namespace {

using test_support::TempDirectory;
using testing::HasSubstr;

constexpr std::size_t LIMIT = 1000;

std::string failureOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Failure &failure) {
        return failure.what();
    }
    return {};
}

std::size_t filesIn(const TempDirectory &folder)
{
    const std::filesystem::directory_iterator files(folder.path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

TEST(Files, AreReadAsTheyWereWritten)
{
    const TempDirectory folder;
    const std::string file = folder.file("config.json");
    for (const std::string &text :
         {std::string(), std::string("a\0b\xff", 4), std::string(LIMIT, 'x')}) {
        replaceFile(file, text);
        EXPECT_EQ(readWhole(file, LIMIT), text);
    }
    EXPECT_EQ(filesIn(folder), 1U);
}

TEST(Files, AreCreatedAsTheUmaskSays)
{
    const TempDirectory folder;
    const std::string file = folder.file("config.json");
    const mode_t before = umask(027);
    replaceFile(file, "x");
    umask(before);
    struct stat found {};
    ASSERT_EQ(stat(file.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0640U);
}

TEST(Files, ThatAreTooLargeAreNotRead)
{
    const TempDirectory folder;
    replaceFile(folder.file("large"), std::string(LIMIT + 1, 'x'));
    EXPECT_THAT(failureOf([&] { readWhole(folder.file("large"), LIMIT); }),
                HasSubstr("larger than"));
    EXPECT_THAT(failureOf([] { readWhole("/dev/zero", LIMIT); }), HasSubstr("larger than"));
}

TEST(Files, ThatCannotBeReadAreNamed)
{
    const TempDirectory folder;
    EXPECT_EQ(failureOf([&] { readWhole(folder.file("none"), LIMIT); }),
              folder.file("none") + ": No such file or directory");
    EXPECT_EQ(failureOf([&] { readWhole(folder.path(), LIMIT); }),
              folder.path() + ": Is a directory");
}

TEST(Files, OfOtherKindsAreNotReplaced)
{
    const TempDirectory folder;
    const std::string target = folder.file("target");
    const std::string link = folder.file("link");
    const std::string pipe = folder.file("pipe");
    replaceFile(target, "old");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string &file : {link, pipe, folder.path(), std::string("/dev/null")}) {
        EXPECT_THAT(failureOf([&] { replaceFile(file, "new"); }),
                    HasSubstr("is there and is no regular file"));
    }
    EXPECT_EQ(readWhole(target, LIMIT), "old");
    EXPECT_EQ(filesIn(folder), 3U);
}

TEST(Files, ThatCannotBeWrittenLeaveNothingBehind)
{
    const TempDirectory folder;
    EXPECT_THAT(failureOf([&] { replaceFile(folder.file("none/config.json"), "x"); }),
                HasSubstr("No such file or directory"));
    EXPECT_THAT(failureOf([&] { replaceFile("", "x"); }), testing::Not(testing::IsEmpty()));
    EXPECT_EQ(filesIn(folder), 0U);
}

} // namespace

} // namespace tovrelctl::test
