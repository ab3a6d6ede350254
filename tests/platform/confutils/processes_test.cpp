/** Several processes at one file, and a disk that is full. */
#include "saved_file.h"
#include "support/child_process.h"
#include "support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>

namespace {

using test_support::ChildProcess;
using testing::IsEmpty;

bool isOneLetter(const std::string &content)
{
    return content == "old" ||
           std::ranges::all_of(content, [&](char letter) { return letter == content.front(); });
}

/** Runs a shell script with a small disk mounted at `folder`, which only the script sees. */
std::string runOnSmallDisk(const std::string &folder, const std::string &script)
{
    ChildProcess process({BWRAP, "--die-with-parent", "--dev-bind", "/", "/", "--size", "65536",
                          "--tmpfs", folder, "/bin/sh", "-euc", script, SAVE_FILE,
                          folder + "/saved.conf"});
    const auto status = process.waitForExit(2 * test_support::DEADLINE);
    EXPECT_EQ(status, 0) << process.standardError();
    return process.standardOutput();
}

} // namespace

TEST(SeveralProcesses, NeverMixTheirContents)
{
    constexpr const char *TURNS = "15";
    const SavedFile file("old");
    std::vector<std::unique_ptr<ChildProcess>> writers;
    for (const auto &[letter, length] : {std::pair("a", "10"), {"b", "5000"}, {"c", "70000"}}) {
        writers.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string>{SAVE_FILE, "022", file.path(), letter, length, TURNS}));
    }
    int broken = 0;
    for (const auto &writer : writers) {
        while (writer->isRunning()) {
            broken += isOneLetter(file.content()) ? 0 : 1;
            broken += file.mode() == CONFIGURATION_MODE ? 0 : 1;
        }
        EXPECT_EQ(writer->waitForExit(test_support::DEADLINE), 0) << writer->standardError();
    }
    EXPECT_EQ(broken, 0);
    EXPECT_NE(file.content(), "old");
    EXPECT_THAT(file.otherNames(), IsEmpty());
}

TEST(SeveralProcesses, KilledAtAnyMomentLeaveAWholeFileAndNothingElseAfterASweep)
{
    constexpr int KILLS = 10;
    const SavedFile file("old");
    for (int turn = 0; turn < KILLS; ++turn) {
        const std::string before = file.content();
        ChildProcess writer(
            {SAVE_FILE, "022", file.path(), turn % 2 == 0 ? "a" : "b", "70000", "1000000"});
        ASSERT_TRUE(test_support::waitUntil([&] { return file.content() != before; }));
        writer.kill();
        ASSERT_EQ(writer.waitForExit(test_support::DEADLINE), 128 + SIGKILL);
        EXPECT_EQ(file.content().size(), 70000U);
        EXPECT_TRUE(isOneLetter(file.content()));
        EXPECT_EQ(file.mode(), CONFIGURATION_MODE);
        ChildProcess sweeper({SAVE_FILE, "--sweep", file.path()});
        ASSERT_EQ(sweeper.waitForExit(test_support::DEADLINE), 0);
        EXPECT_THAT(file.otherNames(), IsEmpty());
    }
}

TEST(FullDisk, KeepsTheOldFileWhenTheNewOneDoesNotFitAndTakesOneThatFits)
{
    const test_support::TempDirectory folder;
    const std::string output = runOnSmallDisk(folder.path(), R"(
        "$0" 022 "$1" o 20000
        if "$0" 022 "$1" n 50000 2>&1; then echo 'did not fail'; fi
        echo
        wc -c <"$1"; tr -d o <"$1" | wc -c; stat -c %a "$1"; ls -A "${1%/*}"
        "$0" 022 "$1" s 10000
        tr -d s <"$1" | wc -c; wc -c <"$1"; ls -A "${1%/*}"
    )");
    EXPECT_EQ(output, "Failed to write \"" + folder.file("saved.conf") +
                          "\": No space left on device\n"
                          "20000\n0\n640\nsaved.conf\n"
                          "0\n10000\nsaved.conf\n");
}

TEST(FullDisk, WithoutASingleFreeBlockKeepsTheOldFile)
{
    const test_support::TempDirectory folder;
    const std::string output = runOnSmallDisk(folder.path(), R"(
        "$0" 022 "$1" o 3000
        cat /dev/zero >"${1%/*}/filler" 2>/dev/null || true
        if "$0" 022 "$1" n 3000 2>&1; then echo 'did not fail'; fi
        echo
        tr -d o <"$1" | wc -c; wc -c <"$1"; stat -c %a "$1"; ls -A "${1%/*}"
        rm "${1%/*}/filler"
        "$0" 022 "$1" n 3000
        tr -d n <"$1" | wc -c; wc -c <"$1"; ls -A "${1%/*}"
    )");
    EXPECT_EQ(output, "Failed to write \"" + folder.file("saved.conf") +
                          "\": No space left on device\n"
                          "0\n3000\n640\nfiller\nsaved.conf\n"
                          "0\n3000\nsaved.conf\n");
}
