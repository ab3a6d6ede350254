/** The command-line tool as people and scripts run it, against the real event service. */
#include "support/child_process.h"
#include "support/private_bus.h"
#include "support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using test_support::ChildProcess;
using test_support::DEADLINE;
using test_support::waitUntil;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

using Words = std::vector<std::string>;

constexpr const char *TIME = "20[0-9-]+T[0-9:]+\\.[0-9]+Z ";

/** What a run of the tool left behind. */
struct Outcome {
    std::optional<int> status;
    std::string output;
    std::string errors;
};

std::vector<std::string> command(const Words &words)
{
    std::vector<std::string> all{NORQ_EVENT_TOOL};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

Outcome finish(ChildProcess &process)
{
    const auto status = process.waitForExit(DEADLINE);
    return {status, process.standardOutput(), process.standardError()};
}

/** Runs the tool to its end. */
Outcome run(const Words &words, const Words &environment = {})
{
    ChildProcess process(command(words), environment);
    return finish(process);
}

/** The tool in the background, from the moment it says that it is ready. */
class Background {
public:
    Background(const Words &words, const std::string &readiness)
        : Background(std::make_unique<ChildProcess>(command(words)), readiness)
    {
    }
    Background(std::unique_ptr<ChildProcess> started, const std::string &readiness)
        : process(std::move(started))
    {
        if (!waitUntil([&] { return process->standardError().find(readiness) == 0; })) {
            throw std::runtime_error("not ready: " + process->standardError());
        }
    }

    ChildProcess &operator*() { return *process; }
    ChildProcess *operator->() { return process.get(); }
    /** Waits for its own end. */
    Outcome end() { return finish(*process); }

private:
    std::unique_ptr<ChildProcess> process;
};

Background watch(Words words)
{
    words.insert(words.begin(), "watch");
    return {words, "watching\n"};
}

Background hold(Words words)
{
    words.insert(words.begin(), {"send", "--hold", "--no-input"});
    return {words, "holding\n"};
}

int linesIn(const std::string &text)
{
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

class Tool : public testing::Test {
protected:
    Tool() { startService(); }

    void startService()
    {
        service = std::make_unique<ChildProcess>(Words{NORQ_EVENTD});
        if (!waitUntil([] { return run({"list"}).status == 0; })) {
            throw std::runtime_error("the event service did not start: " +
                                     service->standardError());
        }
    }

    test_support::PrivateBus bus;
    std::unique_ptr<ChildProcess> service;
};

/** A holding sender whose standard input the test writes. */
class ToolInput : public Tool {
protected:
    ToolInput()
    {
        if (mkfifo(fifo.c_str(), 0600) != 0) {
            throw std::runtime_error("no fifo");
        }
    }

    Background holdReading(const std::string &words)
    {
        auto process = std::make_unique<ChildProcess>(
            Words{"/bin/sh", "-c",
                  std::string("exec ") + NORQ_EVENT_TOOL + " send --hold " + words + " < " + fifo});
        input.open(fifo);
        return {std::move(process), "holding\n"};
    }

    const std::string fifo = bus.folder().file("input");
    std::ofstream input;
};

} // namespace

TEST_F(Tool, deliversAOneOffEventToAWatcher)
{
    Background watcher = watch({"--count", "1"});
    const Outcome sent = run({"send", "--topic", "tns1:Device/tnsnorq:Beta", "index:int=1", "--tag",
                              "index=onvif-source", "port=a b", "--tag", "port=onvif-key",
                              "state:bool=true", "level:double=0.5"});
    EXPECT_EQ(sent.status, 0);
    EXPECT_EQ(sent.output + sent.errors, "");
    const Outcome watched = watcher.end();
    EXPECT_EQ(watched.status, 0);
    EXPECT_EQ(watched.errors, "watching\n");
    EXPECT_THAT(watched.output,
                MatchesRegex(std::string(TIME) + "tns1:Device/tnsnorq:Beta Source\\(index=1\\) "
                                                 "Key\\(port=\"a b\"\\) "
                                                 "Data\\(state=true level=0\\.5\\)\n"));
}

TEST_F(Tool, deliversAOneOffPropertyEventBeforeItIsWithdrawn)
{
    Background watcher = watch({"--count", "20"});
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(run({"send", "--property", "state", "--topic", "A", "state:bool=1"}).status, 0);
    }
    const Outcome watched = watcher.end();
    EXPECT_EQ(watched.status, 0);
    EXPECT_EQ(linesIn(watched.output), 20);
    EXPECT_THAT(watched.output, HasSubstr(" A Changed Data(state=true)\n"));
    EXPECT_EQ(run({"list"}).output, "");
}

TEST_F(Tool, printsTheJsonDocumentOneALine)
{
    Background watcher = watch({"--json", "--count", "1"});
    ASSERT_EQ(
        run({"send", "--topic", "tns1:A/B", "text=\xc3\xa5 \"\n", "number:int=7"}, {"LC_ALL=C"})
            .status,
        0);
    const std::string line = watcher.end().output;
    EXPECT_EQ(linesIn(line), 1);
    const std::unique_ptr<json_t, decltype(&json_decref)> root(
        json_loads(line.c_str(), JSON_REJECT_DUPLICATES, nullptr), json_decref);
    const char *topic = nullptr;
    const char *text = nullptr;
    json_int_t number = 0;
    ASSERT_EQ(json_unpack(root.get(), "{s:s, s:{s:s, s:I}}", "Topic", &topic, "Data", "text", &text,
                          "number", &number),
              0)
        << line;
    EXPECT_STREQ(topic, "tns1:A/B");
    EXPECT_STREQ(text, "\xc3\xa5 \"\n");
    EXPECT_EQ(number, 7);
}

TEST_F(Tool, losesNothingOfALongRunThatEndsAtOnce)
{
    Background watcher = watch({"--count", "2000"});
    ASSERT_EQ(run({"send", "--topic", "A", "--count", "2000", "n:int=1"}).status, 0);
    const Outcome watched = watcher.end();
    EXPECT_EQ(watched.status, 0);
    EXPECT_EQ(linesIn(watched.output), 2000);
}

TEST_F(Tool, sendsAtAnInterval)
{
    Background watcher = watch({"--count", "3"});
    ASSERT_EQ(run({"send", "--topic", "A", "--count", "3", "--interval", "5"}).status, 0);
    EXPECT_EQ(watcher.end().status, 0);
}

TEST_F(Tool, watchesOneTopicOrAllBelowIt)
{
    Background exact = watch({"--topic", "tns1:A/B", "--count", "2"});
    Background below = watch({"--topic", "tns1:A/B//.", "--count", "3"});
    for (const char *topic :
         {"tns1:A", "tns1:A/X", "tns1:A/tnsnorq:B", "A/B", "tns1:A/B", "tns1:A/B/C", "tns1:A/B"}) {
        ASSERT_EQ(run({"send", "--topic", topic}).status, 0);
    }
    EXPECT_THAT(exact.end().output,
                MatchesRegex(std::string(TIME) + "tns1:A/B\n" + TIME + "tns1:A/B\n"));
    EXPECT_THAT(below.end().output, MatchesRegex(std::string(TIME) + "tns1:A/B\n" + TIME +
                                                 "tns1:A/B/C\n" + TIME + "tns1:A/B\n"));
}

TEST_F(Tool, watchesByValueNamespaceAndAbsence)
{
    Background byValue = watch({"--match", "n=1", "--match", "b=1", "--count", "1"});
    Background byNamespace = watch({"--namespace", "n=ns", "--count", "1"});
    Background byAbsence = watch({"--absent", "n", "--count", "1"});
    ASSERT_EQ(run({"send", "which=1", "n:int=2", "b:bool=true"}).status, 0);
    ASSERT_EQ(run({"send", "which=2", "n:int=1", "b:bool=false"}).status, 0);
    ASSERT_EQ(run({"send", "which=3", "n:int=1", "b:bool=true"}).status, 0);
    ASSERT_EQ(run({"send", "which=4", "n@ns:int=5"}).status, 0);
    ASSERT_EQ(run({"send", "which=5"}).status, 0);
    EXPECT_THAT(byValue.end().output, HasSubstr("which=\"3\""));
    EXPECT_THAT(byNamespace.end().output, HasSubstr("which=\"4\""));
    EXPECT_THAT(byAbsence.end().output, HasSubstr("which=\"5\""));
}

TEST_F(Tool, givesAHeldPropertyToNewWatchersUntilItIsTerminated)
{
    Background holder = hold({"--property", "state", "--topic", "A", "state:bool=true"});
    EXPECT_THAT(run({"watch", "--count", "1"}).output,
                HasSubstr(" A Initialized Data(state=true)\n"));
    EXPECT_THAT(run({"list"}).output, MatchesRegex("norq-event [0-9]+: A \\(property, held\\)\n"
                                                   "  state boolean, state\n"));
    holder->signal(SIGTERM);
    EXPECT_EQ(holder.end().status, 0);
    EXPECT_EQ(run({"list"}).output, "");
}

TEST_F(Tool, passesOverTheKeptValuesWhenAskedTo)
{
    Background holder = hold({"--property", "n", "--topic", "A", "n:int=1"});
    Background watcher = watch({"--initial=no", "--count", "1"});
    ASSERT_EQ(run({"send", "--topic", "B"}).status, 0);
    EXPECT_THAT(watcher.end().output, MatchesRegex(std::string(TIME) + "B\n"));
}

TEST_F(Tool, listsFixedValuesTagsAndInternalDeclarations)
{
    Background holder = hold({"--internal", "--topic", "tns1:A/B", "n@ns:int=1", "--tag",
                              "n=onvif-source", "--tag", "n=own", "--fixed", "n", "t=x"});
    EXPECT_THAT(run({"list"}).output, MatchesRegex("norq-event [0-9]+: tns1:A/B \\(internal\\)\n"
                                                   "  n@ns int = 1 \\[onvif-source own\\]\n"
                                                   "  t string\n"));
}

TEST_F(Tool, listsAsJson)
{
    Background holder = hold({"--topic", "tns1:A"});
    const Outcome listed = run({"list", "--json"});
    const std::unique_ptr<json_t, decltype(&json_decref)> root(
        json_loads(listed.output.c_str(), 0, nullptr), json_decref);
    ASSERT_EQ(json_array_size(root.get()), 1U) << listed.output;
    const json_t *client = json_object_get(json_array_get(root.get(), 0), "client");
    EXPECT_STREQ(json_string_value(client), "norq-event");
    EXPECT_EQ(linesIn(listed.output), 1);
}

TEST_F(ToolInput, sendsAgainWithTheNewValuesOfEachLine)
{
    Background watcher = watch({"--count", "4"});
    Background holder = holdReading("--property state --topic A state:bool=false text='a b'");
    input << "state=true\n"
          << R"(text="c \"d" state=0)"
          << "\n\n"
          << std::flush;
    const Outcome watched = watcher.end();
    EXPECT_THAT(watched.output,
                MatchesRegex(std::string(TIME) + R"(A Changed Data\(state=false text="a b"\))" +
                             "\n" + TIME + R"(A Changed Data\(state=true text="a b"\))" + "\n" +
                             TIME + R"(A Changed Data\(state=false text="c \\"d"\))" + "\n" + TIME +
                             R"(A Changed Data\(state=false text="c \\"d"\))" + "\n"));
    EXPECT_TRUE(holder->isRunning());
    input.close();
    EXPECT_EQ(holder.end().status, 0);
    EXPECT_EQ(run({"list"}).output, "");
}

TEST_F(ToolInput, waitsForTheFirstValuesOfKeysWithoutOne)
{
    Background watcher = watch({"--count", "1"});
    Background holder = holdReading("--topic A a:int b:int");
    EXPECT_THAT(run({"list"}).output, HasSubstr("  a int\n  b int\n"));
    input << "a=1\nb=2\n" << std::flush;
    EXPECT_THAT(watcher.end().output, MatchesRegex(std::string(TIME) + "A Data\\(a=1 b=2\\)\n"));
}

TEST_F(ToolInput, reportsABadLineChangesNothingAndGoesOn)
{
    Background watcher = watch({"--count", "2"});
    Background holder = holdReading("--topic A a:int=1 b:int=1 --fixed b");
    input << "a=2 b=2\na=2 a\na=2 c=1\na=x\n'\n\n" << std::flush;
    EXPECT_THAT(watcher.end().output, MatchesRegex(std::string(TIME) + "A Data\\(a=1 b=1\\)\n" +
                                                   TIME + "A Data\\(a=1 b=1\\)\n"));
    input.close();
    const Outcome held = holder.end();
    EXPECT_EQ(held.status, 1);
    for (const char *line : {"line 1: the value of 'b' is fixed", "line 2: 'a': expected KEY=VALUE",
                             "line 3: the event has no key 'c'",
                             "line 4: key 'a': 'x' is not an integer of 64 bits", "line 5: "}) {
        EXPECT_THAT(held.errors, HasSubstr("norq-event send: " + std::string(line)));
    }
    EXPECT_EQ(linesIn(held.errors), 6);
}

TEST_F(Tool, keepsAHeldPropertyAcrossARestartOfTheService)
{
    Background holder = hold({"--property", "n", "--topic", "A", "n:int=1"});
    Background watcher = watch({"--count", "2"});
    service->kill();
    startService();
    const Outcome watched = watcher.end();
    EXPECT_EQ(watched.status, 0);
    EXPECT_THAT(watched.output, HasSubstr("n=1"));
    EXPECT_THAT(run({"watch", "--count", "1"}).output, HasSubstr(" A Initialized Data(n=1)\n"));
}

TEST_F(Tool, endsWithThreeWhenTheTimeIsOverBeforeTheCount)
{
    const Outcome watched = run({"watch", "--count", "1", "--timeout", "1"});
    EXPECT_EQ(watched.status, 3);
    EXPECT_EQ(watched.errors,
              "watching\nnorq-event watch: the time was over after 0 of 1 events\n");
}

TEST_F(Tool, endsWithZeroWhenTheTimeIsOverWithoutACount)
{
    const Outcome watched = run({"watch", "--timeout", "0"});
    EXPECT_EQ(watched.status, 0);
    EXPECT_EQ(watched.errors, "watching\n");
}

TEST_F(Tool, endsWithZeroWhenInterruptedWithoutACountAndWithOneBeforeTheCount)
{
    Background endless = watch({});
    endless->signal(SIGINT);
    EXPECT_EQ(endless.end().status, 0);

    Background counting = watch({"--count", "5"});
    ASSERT_EQ(run({"send", "--topic", "A"}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return linesIn(counting->standardOutput()) == 1; }));
    counting->signal(SIGTERM);
    const Outcome watched = counting.end();
    EXPECT_EQ(watched.status, 1);
    EXPECT_THAT(watched.errors, HasSubstr("interrupted after 1 of 5 events\n"));
}

TEST_F(Tool, failsWhenItsOutputCannotBeWritten)
{
    Background watcher(
        std::make_unique<ChildProcess>(
            Words{"/bin/sh", "-c", std::string("exec ") + NORQ_EVENT_TOOL + " watch > /dev/full"}),
        "watching\n");
    ASSERT_EQ(run({"send", "--topic", "A"}).status, 0);
    const Outcome watched = watcher.end();
    EXPECT_EQ(watched.status, 1);
    EXPECT_THAT(watched.errors, HasSubstr("norq-event watch: cannot write: "));
}

TEST_F(Tool, saysSoWhenTheServiceIsAway)
{
    service->kill();
    for (const Words &words : {Words{"list"}, Words{"send", "--topic", "A"}, Words{"watch"}}) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.status, 1) << words.front();
        EXPECT_THAT(outcome.errors, StartsWith("norq-event: the event service does not answer: "));
        EXPECT_EQ(outcome.output, "");
    }
}

TEST_F(Tool, saysSoWhenTheBusIsAway)
{
    bus.stop();
    const Outcome outcome = run({"list"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, StartsWith("norq-event: no connection to the system bus: "));
}

TEST_F(Tool, handsOnWhatTheLibraryRefuses)
{
    const Outcome twice = run({"send", "--topic", "A", "topic0=B"});
    EXPECT_EQ(twice.status, 1);
    EXPECT_THAT(twice.errors, HasSubstr("norq-event: key 'topic0': "));
    const Outcome conditions = run({"watch", "--match", "a=1", "--match", "a=2"});
    EXPECT_EQ(conditions.status, 1);
    EXPECT_THAT(conditions.errors, HasSubstr("the condition on a is refused"));
}

TEST(ToolUsage, isExplainedOnRequest)
{
    const Outcome tool = run({"--help"});
    EXPECT_EQ(tool.status, 0);
    EXPECT_THAT(tool.output, StartsWith("Usage: norq-event COMMAND"));
    for (const char *command : {"list", "send", "watch"}) {
        const Outcome help = run({command, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_THAT(help.output, HasSubstr(std::string("norq-event ") + command + " [OPTION"));
        EXPECT_THAT(help.output, HasSubstr("Exit status: "));
    }
}

TEST(ToolUsage, isWrongWithStatusOneAndAHint)
{
    const auto errors = [](const Words &words) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        return outcome.errors;
    };
    EXPECT_EQ(errors({}), "norq-event: a command is missing: list, send or watch\n"
                          "Try 'norq-event --help'.\n");
    EXPECT_THAT(errors({"frob"}), StartsWith("norq-event: unknown command 'frob'"));
    EXPECT_EQ(errors({"list", "x"}), "norq-event list: 'x': no argument is expected here\n"
                                     "Try 'norq-event list --help'.\n");
    EXPECT_THAT(errors({"watch", "--bogus"}), StartsWith("norq-event watch: "));
    EXPECT_THAT(errors({"send", "x=\xff"}),
                StartsWith("norq-event send: argument 2 is not valid UTF-8\n"));
}
