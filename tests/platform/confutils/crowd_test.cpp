#include "saved_file.h"

#include <norq/confutils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr int WRITERS = 4;
constexpr int SAVES_OF_EACH = 20;

/** Every writer has a letter and a length of its own, so that a mixture is seen. */
std::string contentOf(int writer)
{
    return std::string(static_cast<std::size_t>(1000 * (writer + 1) * (writer + 1)),
                       static_cast<char>('a' + writer));
}

bool isWhole(const std::string &content)
{
    for (int writer = 0; writer < WRITERS; ++writer) {
        if (content == contentOf(writer)) {
            return true;
        }
    }
    return content == "old";
}

void saveRepeatedly(const std::string &path, int writer, std::atomic<int> &failures)
{
    const std::string content = contentOf(writer);
    for (int turn = 0; turn < SAVES_OF_EACH; ++turn) {
        if (!confutils_set_file_contents_with_sync_mode(path.c_str(), content.data(),
                                                        static_cast<gssize>(content.size()),
                                                        CONFIGURATION_MODE, nullptr)) {
            ++failures;
        }
    }
}

} // namespace

TEST(ManyWriters, NeverMixTheirContentsAndSweepersNeverDisturbThem)
{
    const SavedFile file("old");
    std::atomic<int> failures{0};
    std::atomic<bool> finished{false};
    std::vector<std::thread> writers;
    for (int writer = 0; writer < WRITERS; ++writer) {
        writers.emplace_back([&, writer] { saveRepeatedly(file.path(), writer, failures); });
    }
    std::thread sweeper([&] {
        while (!finished) {
            confutils_sweep_temporary_files(file.path().c_str());
        }
    });
    int reads = 0;
    int broken = 0;
    int wrongModes = 0;
    std::thread reader([&] {
        while (!finished) {
            ++reads;
            broken += isWhole(file.content()) ? 0 : 1;
            wrongModes += file.mode() == CONFIGURATION_MODE ? 0 : 1;
        }
    });
    for (std::thread &writer : writers) {
        writer.join();
    }
    finished = true;
    sweeper.join();
    reader.join();
    EXPECT_EQ(failures, 0);
    EXPECT_GT(reads, 0);
    EXPECT_EQ(broken, 0);
    EXPECT_EQ(wrongModes, 0);
    EXPECT_NE(file.content(), "old");
    EXPECT_THAT(file.otherNames(), testing::IsEmpty());
}

TEST(ManyWriters, OfDifferentFilesInOneFolderDoNotDisturbEachOther)
{
    const SavedFile folder;
    std::atomic<int> failures{0};
    std::vector<std::thread> writers;
    for (int writer = 0; writer < WRITERS; ++writer) {
        writers.emplace_back([&, writer] {
            saveRepeatedly(folder.other("file" + std::to_string(writer)), writer, failures);
        });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    EXPECT_EQ(failures, 0);
    for (int writer = 0; writer < WRITERS; ++writer) {
        EXPECT_EQ(readWhole(folder.other("file" + std::to_string(writer))), contentOf(writer));
    }
    EXPECT_EQ(folder.otherNames().size(), static_cast<std::size_t>(WRITERS));
}
