/** What the logger writes to standard error, which is what it writes everywhere. */
#include "support/child_process.h"
#include "support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using test_support::ChildProcess;
using testing::StartsWith;

struct Result {
    int status;
    std::string errorText;
};

Result runLogging(std::vector<std::string> arguments, const std::string &onStandardError = "1")
{
    arguments.insert(arguments.begin(), LOG_CHILD);
    ChildProcess child(arguments, {"NORQ_LOG_STDERR=" + onStandardError});
    const auto status = child.waitForExit(test_support::DEADLINE);
    return {status.value_or(-1), child.standardError()};
}

std::string logged(std::vector<std::string> arguments)
{
    const Result result = runLogging(std::move(arguments));
    EXPECT_EQ(result.status, 0) << result.errorText;
    return result.errorText;
}

struct LevelCase {
    const char *name;
    int level;
    const char *priority;
};

std::ostream &operator<<(std::ostream &out, const LevelCase &tested)
{
    return out << tested.name;
}

class Level : public testing::TestWithParam<LevelCase> {};

} // namespace

TEST_P(Level, GetsItsPriorityThroughTheClassicCall)
{
    EXPECT_EQ(logged({"it", "old", std::to_string(GetParam().level), "100 % text"}),
              std::string("it: ") + GetParam().priority + ": 100 % text\n");
}

TEST_P(Level, GetsItsPriorityThroughStructuredLogging)
{
    EXPECT_EQ(logged({"it", "structured", std::to_string(GetParam().level), "100 % text"}),
              std::string("it: ") + GetParam().priority + ": 100 % text\n");
}

INSTANTIATE_TEST_SUITE_P(
    Levels, Level,
    testing::Values(LevelCase{"Critical", 8, "err"}, LevelCase{"Warning", 16, "warning"},
                    LevelCase{"Message", 32, "notice"}, LevelCase{"Info", 64, "info"},
                    LevelCase{"Debug", 128, "debug"}, LevelCase{"Failure", 256, "err"},
                    LevelCase{"OtherUserLevel", 512, "notice"}),
    [](const auto &tested) { return tested.param.name; });

struct FatalCase {
    const char *name;
    const char *way;
    int level;
    const char *priority;
};

std::ostream &operator<<(std::ostream &out, const FatalCase &tested)
{
    return out << tested.name;
}

class FatalMessage : public testing::TestWithParam<FatalCase> {};

TEST_P(FatalMessage, IsLoggedAndEndsTheProcess)
{
    const Result result =
        runLogging({"it", GetParam().way, std::to_string(GetParam().level), "the end"});
    EXPECT_THAT(result.status, testing::AnyOf(128 + SIGTRAP, 128 + SIGABRT));
    EXPECT_THAT(result.errorText,
                StartsWith(std::string("it: ") + GetParam().priority + ": the end\n"));
}

INSTANTIATE_TEST_SUITE_P(Ways, FatalMessage,
                         testing::Values(FatalCase{"ClassicError", "old", 4, "err"},
                                         FatalCase{"StructuredError", "structured", 4, "err"},
                                         FatalCase{"ClassicFatalFlag", "old", 16 | 2, "warning"},
                                         FatalCase{"StructuredFatalFlag", "structured", 16 | 2,
                                                   "warning"},
                                         FatalCase{"ClassicFatalFailure", "old", 256 | 2, "err"}),
                         [](const auto &tested) { return tested.param.name; });

class FatalByDebugSetting : public testing::TestWithParam<const char *> {};

TEST_P(FatalByDebugSetting, EndsTheProcess)
{
    ChildProcess child({LOG_CHILD, "it", GetParam(), "16", "the end"},
                       {"NORQ_LOG_STDERR=1", "G_DEBUG=fatal-warnings"});
    EXPECT_THAT(child.waitForExit(test_support::DEADLINE).value_or(-1),
                testing::AnyOf(128 + SIGTRAP, 128 + SIGABRT));
    EXPECT_THAT(child.standardError(), StartsWith("it: warning: the end\n"));
}

INSTANTIATE_TEST_SUITE_P(Ways, FatalByDebugSetting, testing::Values("old", "structured"),
                         [](const auto &tested) { return tested.param; });

struct TextCase {
    const char *name;
    std::string text;
    std::string line;
};

std::ostream &operator<<(std::ostream &out, const TextCase &tested)
{
    return out << tested.name;
}

class Text : public testing::TestWithParam<TextCase> {};

TEST_P(Text, BecomesOneLine)
{
    EXPECT_EQ(logged({"it", "structured", "64", GetParam().text}),
              "it: info: " + GetParam().line + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Text,
    testing::Values(TextCase{"Empty", "", ""}, TextCase{"Plain", "a b", "a b"},
                    TextCase{"Utf8", "gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80",
                             "gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80"},
                    TextCase{"Backslash", "C:\\n", "C:\\n"},
                    TextCase{"Newlines", "a\nb\r\nc\n", "a\\nb\\r\\nc\\n"},
                    TextCase{"ForgedLine", "a\nit: err: b", "a\\nit: err: b"},
                    TextCase{"Tab", "a\tb", "a\\tb"},
                    TextCase{"TerminalSequence", "\x1b[2J\x07\x7f", "\\x1b[2J\\x07\\x7f"},
                    TextCase{"C1Control",
                             "a\xc2\x85"
                             "b",
                             "a\\xc2\\x85"
                             "b"},
                    TextCase{"LineSeparator",
                             "a\xe2\x80\xa8"
                             "b",
                             "a\\xe2\\x80\\xa8"
                             "b"},
                    TextCase{"ParagraphSeparator", "\xe2\x80\xa9", "\\xe2\\x80\\xa9"},
                    TextCase{"BadByte",
                             "a\xff"
                             "b",
                             "a\\xff"
                             "b"},
                    TextCase{"IncompleteCharacter", "a\xe2\x82", "a\\xe2\\x82"},
                    TextCase{"OverlongForm", "\xc0\xaf", "\\xc0\\xaf"},
                    TextCase{"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"}),
    [](const auto &tested) { return tested.param.name; });

TEST(LoggedText, ThroughTheClassicCallStaysOneLine)
{
    EXPECT_EQ(logged({"it", "old", "64", "a\nb"}), "it: info: a\\nb\n");
}

TEST(LoggedText, WithALengthIsTakenToItsEnd)
{
    EXPECT_EQ(logged({"it", "bytes", "64", "ab@cdef", "5"}), "it: info: ab\\x00cd\n");
}

TEST(LoggedText, OfTheLargestSizeIsWhole)
{
    EXPECT_EQ(logged({"it", "long", "64", "32768"}), "it: info: " + std::string(32768, 'x') + "\n");
}

TEST(LoggedText, BeyondTheLargestSizeIsCutAndTheRestCounted)
{
    EXPECT_EQ(logged({"it", "long", "64", "3000000"}),
              "it: info: " + std::string(32768, 'x') + "... (2967232 bytes more)\n");
}

TEST(LoggedText, IsNotCutInTheMidstOfACharacter)
{
    const std::string text = std::string(32767, 'x') + "\xe2\x82\xac tail";
    EXPECT_EQ(logged({"it", "structured", "64", text}),
              "it: info: " + std::string(32767, 'x') + "... (8 bytes more)\n");
}

TEST(Domain, StandsBeforeTheMessage)
{
    EXPECT_EQ(logged({"it", "old", "16", "text", "GLib"}), "it: warning: GLib: text\n");
    EXPECT_EQ(logged({"it", "structured", "16", "text", "GLib"}), "it: warning: GLib: text\n");
}

TEST(Identity, IsTheProgramWhenNoneIsGiven)
{
    EXPECT_EQ(logged({"-", "old", "64", "text"}), "log_child: info: text\n");
}

TEST(Identity, CannotForgeALine)
{
    EXPECT_EQ(logged({"a\nb", "old", "64", "text"}), "a\\nb: info: text\n");
}

TEST(Identity, OfASecondCallIsIgnored)
{
    EXPECT_EQ(logged({"it", "twice", "64", "text"}), "it: info: text\n");
}

TEST(Logging, LeavesErrnoAlone)
{
    EXPECT_EQ(logged({"it", "errno", "64", "text"}), "it: info: text\n");
}

TEST(Logging, OnSeveralThreadsKeepsLinesApartAndLosesNone)
{
    constexpr int THREADS = 4;
    constexpr int MESSAGES = 100;
    std::istringstream lines(logged({"it", "threads", "256", std::to_string(MESSAGES)}));
    std::multiset<std::string> seen;
    for (std::string line; std::getline(lines, line);) {
        seen.insert(line);
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(THREADS * MESSAGES));
    for (int thread = 0; thread < THREADS; ++thread) {
        for (int message = 0; message < MESSAGES; ++message) {
            EXPECT_EQ(seen.count("it: err: thread " + std::to_string(thread) + " message " +
                                 std::to_string(message)),
                      1U);
        }
    }
}

TEST(StandardError, StaysEmptyUnlessItIsATerminalOrAskedFor)
{
    for (const char *value : {"", "0", "yes"}) {
        const Result result = runLogging({"it", "old", "256", "text"}, value);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errorText, "");
    }
}

class TerminalLevel : public testing::TestWithParam<LevelCase> {};

TEST_P(TerminalLevel, HasItsColour)
{
    ChildProcess child(
        {SCRIPT, "-qec",
         std::string(LOG_CHILD) + " it old " + std::to_string(GetParam().level) + " text",
         "/dev/null"},
        {"NORQ_LOG_STDERR=0"});
    ASSERT_EQ(child.waitForExit(test_support::DEADLINE), 0);
    EXPECT_EQ(child.standardOutput(), GetParam().priority);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, TerminalLevel,
    testing::Values(LevelCase{"Failure", 256, "\x1b[1;31mit: err: text\x1b[0m\r\n"},
                    LevelCase{"Warning", 16, "\x1b[1;33mit: warning: text\x1b[0m\r\n"},
                    LevelCase{"Message", 32, "it: notice: text\r\n"},
                    LevelCase{"Info", 64, "it: info: text\r\n"},
                    LevelCase{"Debug", 128, "\x1b[2mit: debug: text\x1b[0m\r\n"}),
    [](const auto &tested) { return tested.param.name; });
