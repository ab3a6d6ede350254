/** Two users of one file, the second coming at the worst moment of the first. */
#include "faults.h"
#include "saved_file.h"
#include "support/wait_until.h"

#include <norq/confutils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

using testing::IsEmpty;

bool save(const SavedFile &file, const std::string &content)
{
    return confutils_set_file_contents_with_sync_mode(file.path().c_str(), content.data(),
                                                      static_cast<gssize>(content.size()),
                                                      CONFIGURATION_MODE, nullptr) == TRUE;
}

void sweep(const SavedFile &file)
{
    confutils_sweep_temporary_files(file.path().c_str());
}

/** True when another thread has tried to lock since the call of this, within the deadline. */
bool otherThreadTriedToLock(int attemptsBefore)
{
    return test_support::waitUntil([&] { return lockAttempts() >= attemptsBefore + 3; });
}

} // namespace

class DuringAStep : public testing::TestWithParam<std::pair<Call, int>> {};

TEST_P(DuringAStep, ASweepLeavesTheFileThatIsBeingWrittenAlone)
{
    const SavedFile file("old");
    Faults faults;
    std::size_t seen = 0;
    faults.before(GetParam().first, GetParam().second, [&] {
        sweep(file);
        seen = file.otherNames().size();
    });
    EXPECT_TRUE(save(file, "new"));
    EXPECT_EQ(seen, 1U);
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST_P(DuringAStep, AWholeSaveOfAnotherWriterSucceedsAndTheLaterOneWins)
{
    const SavedFile file("old");
    Faults faults;
    bool savedByOther = false;
    std::string between;
    faults.before(GetParam().first, GetParam().second, [&] {
        savedByOther = save(file, "other");
        between = file.content();
    });
    EXPECT_TRUE(save(file, "new"));
    EXPECT_TRUE(savedByOther);
    EXPECT_EQ(between, "other");
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Steps, DuringAStep,
                         testing::Values(std::pair(Call::WRITE, 1), std::pair(Call::FCHMOD, 1),
                                         std::pair(Call::FSYNC, 1)),
                         [](const auto &tested) {
                             switch (tested.param.first) {
                             case Call::WRITE:
                                 return "Writing";
                             case Call::FCHMOD:
                                 return "SettingTheMode";
                             default:
                                 return "FlushingTheFile";
                             }
                         });

TEST(BetweenCreationAndLock, ASweepTakesTheFileAndTheWriterMakesAnother)
{
    const SavedFile file("old");
    Faults faults;
    std::size_t left = 99;
    // The first lock of the folder and its release come before that of the temporary file.
    faults.before(Call::FLOCK, 3, [&] {
        sweep(file);
        left = file.otherNames().size();
    });
    EXPECT_TRUE(save(file, "new"));
    EXPECT_EQ(left, 0U);
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(BetweenCreationAndLock, AFileThatASweepHasLockedIsGivenUpForAnother)
{
    const SavedFile file("old");
    Faults faults;
    faults.fail(Call::FLOCK, 3, EWOULDBLOCK);
    EXPECT_TRUE(save(file, "new"));
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(WhileTheFolderIsFlushed, ASweepWaitsSoThatTheOldFileCanComeBack)
{
    const SavedFile file("old");
    std::thread sweeper;
    bool tried = false;
    {
        Faults faults;
        faults.before(Call::FSYNC, 2, [&] {
            const int before = lockAttempts();
            sweeper = std::thread([&] { sweep(file); });
            tried = otherThreadTriedToLock(before);
        });
        faults.fail(Call::FSYNC, 2, EIO);
        EXPECT_FALSE(save(file, "new"));
    }
    EXPECT_EQ(file.content(), "old");
    sweeper.join();
    EXPECT_TRUE(tried);
    EXPECT_EQ(file.content(), "old");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(WhileTheFolderIsFlushed, AnotherWriterWaitsSoThatItsSuccessIsNotUndone)
{
    const SavedFile file("old");
    std::thread writer;
    bool tried = false;
    std::atomic<bool> savedByOther{false};
    {
        Faults faults;
        faults.before(Call::FSYNC, 2, [&] {
            const int before = lockAttempts();
            writer = std::thread([&] { savedByOther = save(file, "other"); });
            tried = otherThreadTriedToLock(before);
        });
        faults.fail(Call::FSYNC, 2, EIO);
        EXPECT_FALSE(save(file, "new"));
    }
    writer.join();
    EXPECT_TRUE(tried);
    EXPECT_TRUE(savedByOther);
    EXPECT_EQ(file.content(), "other");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(ManyWriters, OfWhomSomeFailNeverUndoASuccess)
{
    constexpr int TURNS = 15;
    const SavedFile file("old");
    std::atomic<int> wrongResults{0};
    const auto write = [&](const std::string &content, bool failing) {
        for (int turn = 0; turn < TURNS; ++turn) {
            Faults faults;
            if (failing) {
                faults.fail(Call::FSYNC, 2, EIO);
            }
            wrongResults += save(file, content) == failing ? 1 : 0;
        }
    };
    std::vector<std::thread> writers;
    for (const char *name : {"a", "b"}) {
        writers.emplace_back([&write, name] { write(std::string("good ") + name, false); });
        writers.emplace_back([&write, name] { write(std::string("bad ") + name, true); });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    EXPECT_EQ(wrongResults, 0);
    EXPECT_THAT(file.content(), testing::StartsWith("good "));
    EXPECT_THAT(file.otherNames(), IsEmpty());
}
