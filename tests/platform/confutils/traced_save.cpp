#include "traced_save.h"

#include "support/child_process.h"
#include "support/wait_until.h"

#include <glib.h>

#include <algorithm>
#include <csignal>
#include <sstream>
#include <stdexcept>

namespace {

using test_support::ChildProcess;

constexpr std::size_t LENGTH = 10000;

/** The leak check of the address sanitizer stops the process with ptrace, which strace has taken.
 */
constexpr const char *NO_LEAK_CHECK = "ASAN_OPTIONS=detect_leaks=0";

Ending run(const std::vector<std::string> &command,
           const std::vector<std::string> &environment = {})
{
    ChildProcess process(command, environment);
    const auto status = process.waitForExit(2 * test_support::DEADLINE);
    if (!status) {
        throw std::runtime_error("does not end: " + command.front());
    }
    return {*status, process.standardError()};
}

std::vector<std::string> saveCommand(const SavedFile &file, const std::string &umask)
{
    return {SAVE_FILE, umask, file.path(), "n", std::to_string(LENGTH)};
}

std::vector<std::string> traced(const std::vector<std::string> &options,
                                const std::vector<std::string> &command)
{
    std::vector<std::string> whole{STRACE, "-f", "-qq", "-y"};
    whole.insert(whole.end(), options.begin(), options.end());
    whole.insert(whole.end(), command.begin(), command.end());
    return whole;
}

/** The calls of the step's name that the main thread made, in a log of strace. */
std::vector<std::string> callsIn(const std::string &log, const TracedStep &step)
{
    std::vector<std::string> calls;
    std::istringstream stream(log);
    std::string mainThread;
    for (std::string line; std::getline(stream, line);) {
        const auto end = line.find(' ');
        const std::string thread = line.substr(0, end);
        mainThread = mainThread.empty() ? thread : mainThread;
        const auto begin = line.find_first_not_of(' ', end);
        const std::string start = std::string(step.call) + "(";
        if (thread == mainThread && line.compare(begin, start.size(), start) == 0) {
            calls.push_back(line.substr(begin + start.size()));
        }
    }
    return calls;
}

bool isStep(const std::string &call, const TracedStep &step)
{
    return g_regex_match_simple(step.arguments, call.c_str(), GRegexCompileFlags{},
                                GRegexMatchFlags{}) == TRUE;
}

/** How often the main thread makes the call until it makes that of the step. */
int learnOccurrence(const SavedFile &file, const TracedStep &step, const std::string &umask)
{
    const test_support::TempDirectory directory;
    const std::string log = directory.file("trace");
    // All calls are traced: the first line is then the main thread's, whatever it begins with.
    const Ending ending = run(traced({"-o", log}, saveCommand(file, umask)), {NO_LEAK_CHECK});
    const std::vector<std::string> calls = callsIn(readWhole(log), step);
    const auto found =
        std::ranges::find_if(calls, [&](const std::string &call) { return isStep(call, step); });
    if (ending.status != 0 || found == calls.end()) {
        throw std::runtime_error("an undisturbed save has no step " + std::string(step.name) +
                                 ": " + ending.errorText);
    }
    return static_cast<int>(found - calls.begin()) + 1;
}

/** Whether it was the step at which the error was injected, or the process ended. */
bool wasStepMet(const std::vector<std::string> &calls, const TracedStep &step, int status)
{
    if (status == 128 + SIGKILL) {
        return !calls.empty() && isStep(calls.back(), step);
    }
    return std::ranges::any_of(calls, [&](const std::string &call) {
        return call.find("(INJECTED)") != std::string::npos && isStep(call, step);
    });
}

} // namespace

std::string newContent()
{
    return std::string(LENGTH, 'n');
}

Ending save(const SavedFile &file, const std::string &umask)
{
    return run(saveCommand(file, umask));
}

Ending sweep(const SavedFile &file)
{
    return run({SAVE_FILE, "--sweep", file.path()});
}

DisturbedSave saveWithFault(const std::function<std::unique_ptr<SavedFile>()> &makeFile,
                            const TracedStep &step, const std::string &action,
                            const std::string &umask)
{
    // The start of a program built with a sanitizer differs by a few calls from run to run.
    constexpr int MOST_TRIES = 50;
    for (int tries = 0; tries < MOST_TRIES; ++tries) {
        const std::string occurrence = std::to_string(learnOccurrence(*makeFile(), step, umask));
        auto file = makeFile();
        const test_support::TempDirectory directory;
        const std::string log = directory.file("trace");
        const std::string call = step.call;
        const Ending ending = run(traced({"-o", log, "-e", "trace=execve," + call, "-e",
                                          "inject=" + call + ":" + action + ":when=" + occurrence},
                                         saveCommand(*file, umask)),
                                  {NO_LEAK_CHECK});
        if (wasStepMet(callsIn(readWhole(log), step), step, ending.status)) {
            return {std::move(file), ending};
        }
    }
    throw std::runtime_error(std::string("the step was not met: ") + step.name);
}
