#include "support/child_process.h"

#include "support/wait_until.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <sys/pidfd.h> // glibc 2.36 forgets to say that these are C functions
}

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace test_support {
namespace {

int check(int result, const char *what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

std::vector<char *> pointersTo(const std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string &text : texts) {
        pointers.push_back(const_cast<char *>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::vector<std::string> &extra)
{
    std::vector<std::string> result = extra;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('=') + 1);
        bool replaced = false;
        for (const std::string &given : extra) {
            replaced = replaced || given.starts_with(name);
        }
        if (!replaced) {
            result.push_back(text);
        }
    }
    return result;
}

/** The child between fork and exec: calls that are safe there and nothing else. */
[[noreturn]] void execute(char *const *arguments, char *const *environment, int output, int error,
                          pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (getppid() != parent || dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
        dup2(error, STDERR_FILENO) < 0) {
        _exit(126);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execve(arguments[0], arguments, environment);
    _exit(127);
}

std::string contentOf(int file)
{
    std::string content;
    std::array<char, 4096> chunk{};
    ssize_t count = 0;
    while ((count = pread(file, chunk.data(), chunk.size(), static_cast<off_t>(content.size()))) >
           0) {
        content.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return content;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &command,
                           const std::vector<std::string> &extraEnvironment)
    : outputFd(check(memfd_create("stdout", MFD_CLOEXEC), "memfd_create")),
      errorFd(check(memfd_create("stderr", MFD_CLOEXEC), "memfd_create"))
{
    const std::vector<std::string> variables = environmentWith(extraEnvironment);
    const std::vector<char *> arguments = pointersTo(command);
    const std::vector<char *> environment = pointersTo(variables);
    const pid_t parent = getpid();
    child = check(fork(), "fork");
    if (child == 0) {
        execute(arguments.data(), environment.data(), outputFd, errorFd, parent);
    }
    processFd = check(pidfd_open(child, 0), "pidfd_open");
}

ChildProcess::~ChildProcess()
{
    kill();
    close(processFd);
    close(outputFd);
    close(errorFd);
}

bool ChildProcess::isRunning()
{
    return !waitForExit(std::chrono::milliseconds(0));
}

void ChildProcess::signal(int number)
{
    if (!exitStatus) {
        ::kill(child, number);
    }
}

void ChildProcess::kill()
{
    signal(SIGKILL);
    waitForExit(DEADLINE);
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds limit)
{
    if (!exitStatus) {
        pollfd ended{processFd, POLLIN, 0};
        if (poll(&ended, 1, static_cast<int>(limit.count())) == 1) {
            reap();
        }
    }
    return exitStatus;
}

void ChildProcess::reap()
{
    int status = 0;
    check(waitpid(child, &status, 0), "waitpid");
    exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string ChildProcess::standardOutput() const
{
    return contentOf(outputFd);
}

std::string ChildProcess::standardError() const
{
    return contentOf(errorFd);
}

} // namespace test_support
