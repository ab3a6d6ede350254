#include "saved_file.h"

#include "support/log_capture.h"

#include <norq/confutils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

bool save(const std::string &path, const std::string &content, int mode = CONFIGURATION_MODE)
{
    ErrorRecord record;
    const gboolean saved = confutils_set_file_contents_with_sync_mode(
        path.c_str(), content.data(), static_cast<gssize>(content.size()), mode, &record.error);
    EXPECT_EQ(record.error == nullptr, saved == TRUE) << record.message();
    return saved == TRUE;
}

std::string temporaryName(const std::string &target)
{
    return "." + target + ".norq-0123456789abcdef";
}

/** Changes the umask of the process for a while. */
class Umask {
public:
    explicit Umask(mode_t mask) : former(umask(mask)) {}
    Umask(const Umask &) = delete;
    Umask &operator=(const Umask &) = delete;
    ~Umask() { umask(former); }

private:
    mode_t former;
};

} // namespace

TEST(ReplaceFile, CreatesAFileThatDidNotExist)
{
    const SavedFile file;
    ASSERT_TRUE(save(file.path(), "new"));
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(ReplaceFile, ReplacesTheWholeContentOfAFileThatExists)
{
    const SavedFile file("a content that is longer than the new one");
    ASSERT_TRUE(save(file.path(), "new"));
    EXPECT_EQ(file.content(), "new");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(ReplaceFile, WritesBytesAsTheyAre)
{
    const SavedFile file;
    const std::string bytes("\0\xff\n\0text\r\n", 10);
    ASSERT_TRUE(save(file.path(), bytes));
    EXPECT_EQ(file.content(), bytes);
}

TEST(ReplaceFile, WritesSeveralMegabytesWhole)
{
    const SavedFile file;
    const std::string large(5 * 1024 * 1024 + 1, 'x');
    ASSERT_TRUE(save(file.path(), large));
    EXPECT_TRUE(file.content() == large);
}

TEST(ReplaceFile, TakesTheLengthOfATextWhenItIsMinusOne)
{
    const SavedFile file;
    ASSERT_TRUE(confutils_set_file_contents_with_sync_mode(file.path().c_str(), "text", -1,
                                                           CONFIGURATION_MODE, nullptr));
    EXPECT_EQ(file.content(), "text");
}

TEST(ReplaceFile, WritesAnEmptyFileWithoutContents)
{
    const SavedFile file("old");
    ASSERT_TRUE(confutils_set_file_contents_with_sync_mode(file.path().c_str(), nullptr, 0,
                                                           CONFIGURATION_MODE, nullptr));
    EXPECT_EQ(file.content(), "");
}

TEST(ReplaceFile, FindsAFileByARelativePath)
{
    const SavedFile file;
    const fs::path former = fs::current_path();
    fs::current_path(file.folder());
    const bool saved = save("saved.conf", "relative");
    fs::current_path(former);
    EXPECT_TRUE(saved);
    EXPECT_EQ(file.content(), "relative");
}

TEST(ReplaceFile, ReplacesASymbolicLinkAndLeavesItsTargetAlone)
{
    const SavedFile file;
    writePlainly(file.other("target"), "of the link");
    fs::create_symlink("target", file.path());
    ASSERT_TRUE(save(file.path(), "new"));
    EXPECT_FALSE(fs::is_symlink(file.path()));
    EXPECT_EQ(file.content(), "new");
    EXPECT_EQ(readWhole(file.other("target")), "of the link");
    EXPECT_THAT(file.otherNames(), ElementsAre("target"));
}

TEST(ReplaceFile, LeavesAReaderOfTheOldFileItsContent)
{
    const SavedFile file("old");
    std::FILE *reader = std::fopen(file.path().c_str(), "re");
    ASSERT_NE(reader, nullptr);
    ASSERT_TRUE(save(file.path(), "new"));
    std::array<char, 8> text{};
    EXPECT_EQ(std::fread(text.data(), 1, text.size(), reader), 3U);
    EXPECT_STREQ(text.data(), "old");
    std::fclose(reader);
}

TEST(ReplaceFile, TakesTheLongestNameThatTheFileSystemAllows)
{
    const SavedFile file;
    const std::string name(255, 'n');
    ASSERT_TRUE(save(file.other(name), "first"));
    ASSERT_TRUE(save(file.other(name), "second"));
    EXPECT_EQ(readWhole(file.other(name)), "second");
    EXPECT_THAT(file.otherNames(), ElementsAre(name));
}

struct ModeCase {
    const char *name;
    mode_t mask;
    int mode;
};

std::ostream &operator<<(std::ostream &out, const ModeCase &tested)
{
    return out << tested.name;
}

class ReplaceFileMode : public testing::TestWithParam<ModeCase> {};

TEST_P(ReplaceFileMode, IsExactlyTheOneAskedForWhateverTheUmaskIs)
{
    const SavedFile file;
    const Umask umaskOfTest(GetParam().mask);
    ASSERT_TRUE(save(file.path(), "first", GetParam().mode));
    EXPECT_EQ(file.mode(), GetParam().mode);
    ASSERT_EQ(chmod(file.path().c_str(), 0777), 0);
    ASSERT_TRUE(save(file.path(), "second", GetParam().mode));
    EXPECT_EQ(file.mode(), GetParam().mode);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, ReplaceFileMode,
    testing::Values(ModeCase{"Mode0640Umask000", 0, 0640}, ModeCase{"Mode0640Umask022", 022, 0640},
                    ModeCase{"Mode0640Umask077", 077, 0640},
                    ModeCase{"Mode0666Umask022", 022, 0666}, ModeCase{"Mode0600Umask000", 0, 0600},
                    ModeCase{"Mode0000Umask022", 022, 0}, ModeCase{"Mode7777Umask077", 077, 07777}),
    [](const auto &tested) { return tested.param.name; });

struct RefusalCase {
    const char *name;
    const char *path; /**< relative to the test's folder, unless it is NULL or empty */
    const char *contents;
    gssize length;
    int mode;
    GFileError code;
    const char *part;
};

std::ostream &operator<<(std::ostream &out, const RefusalCase &tested)
{
    return out << tested.name;
}

class ReplaceFileRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(ReplaceFileRefusal, IsAnErrorThatNamesStepPathAndReason)
{
    const RefusalCase &tested = GetParam();
    const SavedFile file("old");
    fs::create_directory(file.other("folder"));
    std::string path;
    if (tested.path != nullptr) {
        path = *tested.path == '\0' ? "" : file.other(tested.path);
    }
    ErrorRecord record;
    EXPECT_FALSE(confutils_set_file_contents_with_sync_mode(
        tested.path != nullptr ? path.c_str() : nullptr, tested.contents, tested.length,
        tested.mode, &record.error));
    ASSERT_TRUE(g_error_matches(record.error, G_FILE_ERROR, tested.code)) << record.message();
    EXPECT_THAT(record.message(), AllOf(HasSubstr(tested.part), HasSubstr("\"" + path)));
    EXPECT_EQ(file.content(), "old");
    EXPECT_THAT(file.otherNames(), ElementsAre("folder"));
    EXPECT_TRUE(fs::is_directory(file.other("folder")));
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, ReplaceFileRefusal,
    testing::Values(
        RefusalCase{"NoPath", nullptr, "x", 1, 0640, G_FILE_ERROR_INVAL, "Invalid argument"},
        RefusalCase{"EmptyPath", "", "x", 1, 0640, G_FILE_ERROR_INVAL, "Invalid argument"},
        RefusalCase{"NoContents", "saved.conf", nullptr, 1, 0640, G_FILE_ERROR_INVAL, "Invalid"},
        RefusalCase{"NoText", "saved.conf", nullptr, -1, 0640, G_FILE_ERROR_INVAL, "Invalid"},
        RefusalCase{"LengthBelowMinusOne", "saved.conf", "x", -2, 0640, G_FILE_ERROR_INVAL,
                    "given"},
        RefusalCase{"NegativeMode", "saved.conf", "x", 1, -1, G_FILE_ERROR_INVAL, "given"},
        RefusalCase{"ModeWithOtherBits", "saved.conf", "x", 1, 010000, G_FILE_ERROR_INVAL, "given"},
        RefusalCase{"FolderAtThePath", "folder", "x", 1, 0640, G_FILE_ERROR_ISDIR, "replace"},
        RefusalCase{"SlashAtTheEnd", "folder/", "x", 1, 0640, G_FILE_ERROR_ISDIR, "use"},
        RefusalCase{"FolderItself", "folder/.", "x", 1, 0640, G_FILE_ERROR_ISDIR, "use"},
        RefusalCase{"MissingFolder", "missing/file", "x", 1, 0640, G_FILE_ERROR_NOENT,
                    "open the folder of"},
        RefusalCase{"FileForAFolder", "saved.conf/file", "x", 1, 0640, G_FILE_ERROR_NOTDIR,
                    "open the folder of"}),
    [](const auto &tested) { return tested.param.name; });

TEST(ReplaceFile, NeedsNoPlaceForItsError)
{
    EXPECT_FALSE(confutils_set_file_contents_with_sync_mode("/nowhere/at/all", "x", 1,
                                                            CONFIGURATION_MODE, nullptr));
}

TEST(ReplaceFile, NamesAPathThatIsNotUtf8InAMessageThatIs)
{
    ErrorRecord record;
    EXPECT_FALSE(confutils_set_file_contents_with_sync_mode("/nowhere/\xff", "x", 1,
                                                            CONFIGURATION_MODE, &record.error));
    EXPECT_TRUE(g_utf8_validate(record.message().c_str(), -1, nullptr));
}

TEST(SweepTemporaryFiles, RemovesThoseOfItsTargetAndNothingElse)
{
    const SavedFile file("content");
    writePlainly(file.other(temporaryName("saved.conf")), "left behind");
    const std::vector<std::string> others{
        temporaryName("other.conf"),          ".saved.conf.norq-0123456789abcde",
        ".saved.conf.norq-0123456789abcdefa", ".saved.conf.norq-0123456789abcdeX",
        "saved.conf.norq-0123456789abcdef",   "saved.conf~"};
    for (const std::string &name : others) {
        writePlainly(file.other(name), "somebody else's");
    }
    confutils_sweep_temporary_files(file.path().c_str());
    EXPECT_THAT(file.otherNames(), testing::UnorderedElementsAreArray(others));
    EXPECT_EQ(file.content(), "content");
}

TEST(SweepTemporaryFiles, RemovesASymbolicLinkThatWasSwappedOut)
{
    const SavedFile file("content");
    fs::create_symlink("saved.conf", file.other(temporaryName("saved.conf")));
    confutils_sweep_temporary_files(file.path().c_str());
    EXPECT_THAT(file.otherNames(), IsEmpty());
    EXPECT_EQ(file.content(), "content");
}

TEST(SweepTemporaryFiles, LeavesAFolderOfSuchANameAlone)
{
    const SavedFile file("content");
    fs::create_directory(file.other(temporaryName("saved.conf")));
    confutils_sweep_temporary_files(file.path().c_str());
    EXPECT_THAT(file.otherNames(), ElementsAre(temporaryName("saved.conf")));
}

TEST(SweepTemporaryFiles, IsPartOfASave)
{
    const SavedFile file("old");
    writePlainly(file.other(temporaryName("saved.conf")), "left behind");
    ASSERT_TRUE(save(file.path(), "new"));
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(SweepTemporaryFiles, FindsThoseOfTheLongestName)
{
    const SavedFile file;
    const std::string name(255, 'n');
    ASSERT_TRUE(save(file.other(name), "content"));
    const std::unique_ptr<char, decltype(&g_free)> digest(
        g_compute_checksum_for_string(G_CHECKSUM_SHA256, name.c_str(), -1), g_free);
    const std::string stem = name.substr(0, 150) + "~" + std::string(digest.get()).substr(0, 16);
    writePlainly(file.other(temporaryName(stem)), "left behind");
    confutils_sweep_temporary_files(file.other(name).c_str());
    EXPECT_THAT(file.otherNames(), ElementsAre(name));
}

TEST(SweepTemporaryFiles, SaysNothingAboutAFolderOrPathThatIsMissing)
{
    test_support::LogCapture log;
    confutils_sweep_temporary_files("/nowhere/at/all");
    confutils_sweep_temporary_files("");
    confutils_sweep_temporary_files(nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}
