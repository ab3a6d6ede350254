#include "faults.h"
#include "saved_file.h"

#include <norq/confutils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <tuple>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/** Saves "new". */
bool save(const SavedFile &file, ErrorRecord &record)
{
    return confutils_set_file_contents_with_sync_mode(file.path().c_str(), "new", 3,
                                                      CONFIGURATION_MODE, &record.error) == TRUE;
}

bool save(const SavedFile &file)
{
    ErrorRecord record;
    const bool saved = save(file, record);
    EXPECT_TRUE(saved) << record.message();
    return saved;
}

struct Step {
    const char *name;
    Call call;
    int occurrence;
    const char *message;
};

std::ostream &operator<<(std::ostream &out, const Step &step)
{
    return out << step.name;
}

struct Reason {
    const char *name;
    int code;
};

std::ostream &operator<<(std::ostream &out, const Reason &reason)
{
    return out << reason.name;
}

const auto REASONS = testing::Values(Reason{"ENOSPC", ENOSPC}, Reason{"EIO", EIO},
                                     Reason{"EROFS", EROFS}, Reason{"EDQUOT", EDQUOT});

class FailingStep : public testing::TestWithParam<std::tuple<Step, Reason>> {};

std::string nameOf(const testing::TestParamInfo<std::tuple<Step, Reason>> &tested)
{
    return std::string(std::get<0>(tested.param).name) + std::get<1>(tested.param).name;
}

void expectOldState(const Step &step, const Reason &reason, const SavedFile &file,
                    const std::string &before)
{
    ErrorRecord record;
    {
        Faults faults;
        faults.fail(step.call, step.occurrence, reason.code);
        EXPECT_FALSE(save(file, record));
    }
    EXPECT_EQ(file.content(), before);
    EXPECT_THAT(file.otherNames(), IsEmpty());
    ASSERT_NE(record.error, nullptr);
    EXPECT_EQ(record.error->domain, G_FILE_ERROR);
    EXPECT_EQ(record.error->code, g_file_error_from_errno(reason.code));
    EXPECT_EQ(record.message(), std::string("Failed to ") + step.message + " \"" + file.path() +
                                    "\": " + g_strerror(reason.code));
}

} // namespace

TEST_P(FailingStep, LeavesTheOldFileUntouched)
{
    const auto &[step, reason] = GetParam();
    const SavedFile file("old");
    expectOldState(step, reason, file, "old");
    EXPECT_EQ(file.mode(), CONFIGURATION_MODE);
}

TEST_P(FailingStep, LeavesNothingWhereNothingWas)
{
    const auto &[step, reason] = GetParam();
    expectOldState(step, reason, SavedFile(), ABSENT);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailingStep,
    testing::Combine(
        testing::Values(Step{"OpeningTheFolder", Call::OPEN, 1, "open the folder of"},
                        Step{"CreatingTheFile", Call::OPENAT, 2, "create a temporary file for"},
                        Step{"LookingAtTheFile", Call::FSTAT, 1, "look at the temporary file for"},
                        Step{"Writing", Call::WRITE, 1, "write"},
                        Step{"SettingTheMode", Call::FCHMOD, 1, "set the mode of"},
                        Step{"FlushingTheFile", Call::FSYNC, 1, "flush"},
                        Step{"ClosingTheFile", Call::CLOSE, 1, "close"},
                        Step{"PuttingIntoPlace", Call::RENAMEAT2, 1, "replace"},
                        Step{"FlushingTheFolder", Call::FSYNC, 2, "flush the folder of"}),
        REASONS),
    nameOf);

class FailingCreation : public testing::TestWithParam<Reason> {};

TEST_P(FailingCreation, LeavesNothingWhereNothingWas)
{
    expectOldState({"", Call::RENAMEAT2, 2, "replace"}, GetParam(), SavedFile(), ABSENT);
}

INSTANTIATE_TEST_SUITE_P(Steps, FailingCreation, REASONS,
                         [](const auto &tested) { return tested.param.name; });

TEST(Writing, GoesOnAfterShortWrites)
{
    const SavedFile file("old");
    Faults faults;
    faults.shortenWrites(1);
    ASSERT_TRUE(save(file));
    EXPECT_EQ(faults.count(Call::WRITE), 3);
    EXPECT_EQ(file.content(), "new");
}

TEST(Writing, ThatFailsAfterAShortWriteLeavesTheOldFileUntouched)
{
    const SavedFile file("old");
    ErrorRecord record;
    Faults faults;
    faults.shortenWrites(2);
    faults.fail(Call::WRITE, 2, ENOSPC);
    EXPECT_FALSE(save(file, record));
    EXPECT_EQ(file.content(), "old");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(Writing, ThatTakesNothingIsAFailureAndNoEndlessLoop)
{
    const SavedFile file("old");
    ErrorRecord record;
    Faults faults;
    faults.shortenWrites(0);
    EXPECT_FALSE(save(file, record));
    EXPECT_THAT(record.message(), HasSubstr("write"));
    EXPECT_EQ(file.content(), "old");
}

class InterruptedCall : public testing::TestWithParam<Step> {};

TEST_P(InterruptedCall, IsNoFailure)
{
    const SavedFile file("old");
    Faults faults;
    faults.fail(GetParam().call, GetParam().occurrence, EINTR);
    ASSERT_TRUE(save(file));
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Steps, InterruptedCall,
                         testing::Values(Step{"OpeningTheFolder", Call::OPEN, 1, ""},
                                         Step{"LockingTheFolder", Call::FLOCK, 1, ""},
                                         Step{"CreatingTheFile", Call::OPENAT, 2, ""},
                                         Step{"Writing", Call::WRITE, 1, ""},
                                         Step{"FlushingTheFile", Call::FSYNC, 1, ""},
                                         Step{"ClosingTheFile", Call::CLOSE, 1, ""},
                                         Step{"FlushingTheFolder", Call::FSYNC, 2, ""}),
                         [](const auto &tested) { return tested.param.name; });

class HarmlessFailure : public testing::TestWithParam<Step> {};

TEST_P(HarmlessFailure, DoesNotKeepTheNewContentFromItsPlace)
{
    const SavedFile file("old");
    Faults faults;
    faults.failFrom(GetParam().call, GetParam().occurrence, EOPNOTSUPP);
    ASSERT_TRUE(save(file));
    EXPECT_EQ(file.content(), "new");
}

INSTANTIATE_TEST_SUITE_P(Steps, HarmlessFailure,
                         testing::Values(Step{"Locking", Call::FLOCK, 1, ""},
                                         Step{"RemovingTheOldFile", Call::UNLINKAT, 1, ""}),
                         [](const auto &tested) { return tested.param.name; });

TEST(TheOldFile, ThatCouldNotBeRemovedIsSweptByTheNextSave)
{
    const SavedFile file("old");
    {
        Faults faults;
        faults.fail(Call::UNLINKAT, 1, EIO);
        ASSERT_TRUE(save(file));
        ASSERT_EQ(file.otherNames().size(), 1U);
    }
    ASSERT_TRUE(save(file));
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(TheListingOfTheFolder, IsNotNeededForASave)
{
    const SavedFile file("old");
    Faults faults;
    faults.fail(Call::OPENAT, 1, EACCES);
    ASSERT_TRUE(save(file));
    EXPECT_EQ(file.content(), "new");
}

class FileSystemWithoutExchange : public testing::TestWithParam<int> {};

TEST_P(FileSystemWithoutExchange, GetsAPlainRename)
{
    const SavedFile existing("old");
    const SavedFile absent;
    Faults faults;
    faults.failFrom(Call::RENAMEAT2, 1, GetParam());
    ASSERT_TRUE(save(existing));
    ASSERT_TRUE(save(absent));
    EXPECT_EQ(faults.count(Call::RENAMEAT), 2);
    EXPECT_EQ(existing.content(), "new");
    EXPECT_EQ(absent.content(), "new");
    EXPECT_THAT(existing.otherNames(), IsEmpty());
    EXPECT_THAT(absent.otherNames(), IsEmpty());
}

TEST_P(FileSystemWithoutExchange, KeepsTheOldFileWhenTheRenameFails)
{
    const SavedFile file("old");
    ErrorRecord record;
    Faults faults;
    faults.failFrom(Call::RENAMEAT2, 1, GetParam());
    faults.fail(Call::RENAMEAT, 1, EIO);
    EXPECT_FALSE(save(file, record));
    EXPECT_EQ(file.content(), "old");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST_P(FileSystemWithoutExchange, HasTheNewFileWhenFlushingTheFolderFailsAndSaysSo)
{
    const SavedFile file("old");
    ErrorRecord record;
    Faults faults;
    faults.failFrom(Call::RENAMEAT2, 1, GetParam());
    faults.fail(Call::FSYNC, 2, EIO);
    EXPECT_FALSE(save(file, record));
    EXPECT_THAT(record.message(), AllOf(HasSubstr("flush the folder of"),
                                        HasSubstr("(the new content is in place)")));
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST_P(FileSystemWithoutExchange, RemovesANewFileAgainWhenFlushingTheFolderFails)
{
    const SavedFile file;
    ErrorRecord record;
    Faults faults;
    faults.failFrom(Call::RENAMEAT2, 1, GetParam());
    faults.fail(Call::FSYNC, 2, EIO);
    EXPECT_FALSE(save(file, record));
    EXPECT_THAT(record.message(), Not(HasSubstr("in place")));
    EXPECT_EQ(file.content(), ABSENT);
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Answers, FileSystemWithoutExchange, testing::Values(EINVAL, ENOSYS),
                         [](const auto &tested) {
                             return tested.param == EINVAL ? "EINVAL" : "ENOSYS";
                         });

TEST(Undoing, ThatFailsTooIsToldByTheErrorAndTheFileIsWhole)
{
    const SavedFile file("old");
    ErrorRecord record;
    Faults faults;
    faults.fail(Call::FSYNC, 2, EIO);
    faults.fail(Call::RENAMEAT2, 2, EIO);
    EXPECT_FALSE(save(file, record));
    EXPECT_THAT(record.message(), HasSubstr("(the new content is in place)"));
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(Undoing, OfANewFileThatFailsTooIsToldByTheError)
{
    const SavedFile file;
    ErrorRecord record;
    Faults faults;
    faults.fail(Call::FSYNC, 2, EIO);
    faults.fail(Call::UNLINKAT, 1, EIO);
    EXPECT_FALSE(save(file, record));
    EXPECT_THAT(record.message(), HasSubstr("(the new content is in place)"));
    EXPECT_EQ(file.content(), "new");
}

TEST(TheTemporaryName, IsChosenAgainWhenItIsTaken)
{
    const SavedFile file("old");
    Faults faults;
    faults.fail(Call::OPENAT, 2, EEXIST);
    ASSERT_TRUE(save(file));
    EXPECT_EQ(file.content(), "new");
}

TEST(TheTemporaryName, IsNotChosenForEver)
{
    const SavedFile file("old");
    ErrorRecord record;
    Faults faults;
    faults.failFrom(Call::OPENAT, 2, EEXIST);
    EXPECT_FALSE(save(file, record));
    EXPECT_THAT(record.message(), HasSubstr("create a temporary file for"));
    EXPECT_EQ(file.content(), "old");
}
