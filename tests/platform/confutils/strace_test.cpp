/** Every system call of a save fails in turn, and the process is killed at each. */
#include "traced_save.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <tuple>

namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char *OLD_CONTENT = "the old content";
constexpr int KILLED = 128 + SIGKILL;

/** Whether there is an old file. */
enum class Before { EXISTS, ABSENT };

// The arguments show a descriptor with its path: the temporary file's has ".norq-" in it and
// the folder's has not.
const auto STEPS = testing::Values(
    TracedStep{"Create", "openat", "\"\\.saved\\.conf\\.norq-.*O_CREAT", false},
    TracedStep{"Write", "write", "^\\d+<[^>]*\\.norq-", true},
    TracedStep{"SetMode", "fchmod", "^\\d+<[^>]*\\.norq-.*0640", true},
    TracedStep{"FlushFile", "fsync", "^\\d+<[^>]*\\.norq-", true},
    TracedStep{"Close", "close", "^\\d+<[^>]*\\.norq-", true},
    TracedStep{"PutIntoPlace", "renameat2", "\\.norq-.*saved\\.conf.*RENAME_EXCHANGE", true});
const TracedStep FLUSH_FOLDER{"FlushFolder", "fsync", "^\\d+<(?![^>]*\\.norq-)", true};
const TracedStep CREATE_IN_PLACE{"CreateInPlace", "renameat2", "RENAME_NOREPLACE", true};

std::unique_ptr<SavedFile> fileIn(Before state)
{
    return state == Before::EXISTS ? std::make_unique<SavedFile>(OLD_CONTENT)
                                   : std::make_unique<SavedFile>();
}

std::string contentIn(Before state)
{
    return state == Before::EXISTS ? OLD_CONTENT : ABSENT;
}

std::string nameOf(Before state)
{
    return state == Before::EXISTS ? "Existing" : "New";
}

void expectUntouched(const TracedStep &step, const std::string &reason, Before state)
{
    const auto file = fileIn(state);
    const Ending ending = saveWithFault(*file, *fileIn(state), step, "error=" + reason);
    EXPECT_EQ(ending.status, 1) << ending.errorText;
    EXPECT_THAT(ending.errorText, HasSubstr(file->path()));
    EXPECT_EQ(file->content(), contentIn(state));
    EXPECT_EQ(file->mode(), state == Before::EXISTS ? CONFIGURATION_MODE : -1);
    EXPECT_THAT(file->otherNames(), IsEmpty());
}

void expectOldOrNew(const SavedFile &file, Before state)
{
    EXPECT_THAT(file.content(), AnyOf(contentIn(state), newContent()));
    EXPECT_THAT(file.mode(), AnyOf(file.content() == ABSENT ? -1 : CONFIGURATION_MODE));
}

/** Kills a save at the step; the file that this left is returned. */
std::unique_ptr<SavedFile> killedAt(const TracedStep &step, Before state)
{
    auto file = fileIn(state);
    const Ending ending = saveWithFault(*file, *fileIn(state), step, "signal=SIGKILL");
    EXPECT_EQ(ending.status, KILLED) << ending.errorText;
    expectOldOrNew(*file, state);
    // A new file has left its temporary name when the folder is flushed.
    const bool moved = state == Before::ABSENT && step.name == FLUSH_FOLDER.name;
    EXPECT_EQ(file->otherNames().size(), step.leavesFile && !moved ? 1U : 0U);
    return file;
}

void expectSweepAfterKill(const TracedStep &step, Before state)
{
    const auto file = killedAt(step, state);
    EXPECT_EQ(sweep(*file).status, 0);
    EXPECT_THAT(file->otherNames(), IsEmpty());
    expectOldOrNew(*file, state);
}

void expectSaveAfterKill(const TracedStep &step, Before state)
{
    const auto file = killedAt(step, state);
    const Ending next = save(*file);
    EXPECT_EQ(next.status, 0) << next.errorText;
    EXPECT_EQ(file->content(), newContent());
    EXPECT_EQ(file->mode(), CONFIGURATION_MODE);
    EXPECT_THAT(file->otherNames(), IsEmpty());
}

} // namespace

using FaultCase = std::tuple<TracedStep, const char *, Before>;

class FailingSystemCall : public testing::TestWithParam<FaultCase> {};

TEST_P(FailingSystemCall, LeavesEverythingAsItWas)
{
    const auto &[step, reason, state] = GetParam();
    expectUntouched(step, reason, state);
}

std::string nameOfFault(const testing::TestParamInfo<FaultCase> &tested)
{
    const auto &[step, reason, state] = tested.param;
    return std::string(step.name) + reason + nameOf(state);
}

const auto REASONS = testing::Values("ENOSPC", "EIO", "EROFS");
const auto STATES = testing::Values(Before::EXISTS, Before::ABSENT);

INSTANTIATE_TEST_SUITE_P(Steps, FailingSystemCall, testing::Combine(STEPS, REASONS, STATES),
                         nameOfFault);
INSTANTIATE_TEST_SUITE_P(FolderFlush, FailingSystemCall,
                         testing::Combine(testing::Values(FLUSH_FOLDER), REASONS, STATES),
                         nameOfFault);
INSTANTIATE_TEST_SUITE_P(Creation, FailingSystemCall,
                         testing::Combine(testing::Values(CREATE_IN_PLACE), REASONS,
                                          testing::Values(Before::ABSENT)),
                         nameOfFault);

using KillCase = std::tuple<TracedStep, Before>;

class Kill : public testing::TestWithParam<KillCase> {};

TEST_P(Kill, LeavesTheOldOrTheNewContentAndASweepTheRest)
{
    const auto &[step, state] = GetParam();
    expectSweepAfterKill(step, state);
}

TEST_P(Kill, LeavesTheOldOrTheNewContentAndTheNextSaveWorks)
{
    const auto &[step, state] = GetParam();
    expectSaveAfterKill(step, state);
}

std::string nameOfKill(const testing::TestParamInfo<KillCase> &tested)
{
    const auto &[step, state] = tested.param;
    return std::string(step.name) + nameOf(state);
}

INSTANTIATE_TEST_SUITE_P(Steps, Kill, testing::Combine(STEPS, STATES), nameOfKill);
INSTANTIATE_TEST_SUITE_P(FolderFlush, Kill, testing::Combine(testing::Values(FLUSH_FOLDER), STATES),
                         nameOfKill);
INSTANTIATE_TEST_SUITE_P(Creation, Kill,
                         testing::Combine(testing::Values(CREATE_IN_PLACE),
                                          testing::Values(Before::ABSENT)),
                         nameOfKill);
INSTANTIATE_TEST_SUITE_P(RemovalOfTheOldFile, Kill,
                         testing::Combine(testing::Values(TracedStep{"RemoveOld", "unlinkat",
                                                                     "\\.norq-", true}),
                                          testing::Values(Before::EXISTS)),
                         nameOfKill);

using UmaskCase = std::tuple<const char *, Before>;

class Umask : public testing::TestWithParam<UmaskCase> {};

TEST_P(Umask, HasNoSayInTheModeOfASavedFile)
{
    const auto &[umask, state] = GetParam();
    const auto file = fileIn(state);
    EXPECT_EQ(save(*file, umask).status, 0);
    EXPECT_EQ(file->content(), newContent());
    EXPECT_EQ(file->mode(), CONFIGURATION_MODE);
    EXPECT_THAT(file->otherNames(), IsEmpty());
}

TEST_P(Umask, HasNoSayInTheModeOfAFileThatIsPutBack)
{
    const auto &[umask, state] = GetParam();
    const auto file = fileIn(state);
    EXPECT_EQ(saveWithFault(*file, *fileIn(state), FLUSH_FOLDER, "error=EIO", umask).status, 1);
    EXPECT_EQ(file->content(), contentIn(state));
    EXPECT_EQ(file->mode(), state == Before::EXISTS ? CONFIGURATION_MODE : -1);
    EXPECT_THAT(file->otherNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Masks, Umask,
                         testing::Combine(testing::Values("000", "022", "077"), STATES),
                         [](const auto &tested) {
                             return std::string("Umask") + std::get<0>(tested.param) +
                                    nameOf(std::get<1>(tested.param));
                         });
