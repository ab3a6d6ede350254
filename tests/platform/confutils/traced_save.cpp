#include "traced_save.h"

#include "support/child_process.h"
#include "support/wait_until.h"

#include <regex>
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

/** How often the main thread has made the call, the matching one included, in a log of strace. */
int occurrenceIn(const std::string &log, const TracedStep &step)
{
    const std::regex lines("^(\\d+) +" + std::string(step.call) + "\\((.*)$");
    const std::regex arguments(step.arguments);
    std::istringstream stream(log);
    std::string mainThread;
    int count = 0;
    for (std::string line; std::getline(stream, line);) {
        const std::string thread = line.substr(0, line.find(' '));
        mainThread = mainThread.empty() ? thread : mainThread;
        std::smatch match;
        if (thread != mainThread || !std::regex_match(line, match, lines)) {
            continue;
        }
        ++count;
        if (std::regex_search(match[2].first, match[2].second, arguments)) {
            return count;
        }
    }
    throw std::runtime_error(std::string("no such step: ") + step.name + "\n" + log);
}

int learnOccurrence(const SavedFile &likeness, const TracedStep &step, const std::string &umask)
{
    const test_support::TempDirectory directory;
    const std::string log = directory.file("trace");
    // All calls are traced: the first line is then the main thread's, whatever it begins with.
    const Ending ending = run(traced({"-o", log}, saveCommand(likeness, umask)), {NO_LEAK_CHECK});
    if (ending.status != 0) {
        throw std::runtime_error("the undisturbed save failed: " + ending.errorText);
    }
    return occurrenceIn(readWhole(log), step);
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

Ending saveWithFault(const SavedFile &file, const SavedFile &likeness, const TracedStep &step,
                     const std::string &action, const std::string &umask)
{
    const std::string call = step.call;
    const int occurrence = learnOccurrence(likeness, step, umask);
    return run(traced({"-o", "/dev/null", "-e", "trace=" + call, "-e",
                       "inject=" + call + ":" + action + ":when=" + std::to_string(occurrence)},
                      saveCommand(file, umask)),
               {NO_LEAK_CHECK});
}
