/** A child process of a test, which never outlives the test. */
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

/**
 * Runs a program. Its standard output and error are kept and can be read at any time; its standard
 * input is empty. The child is killed when the object goes or the test process dies.
 */
class ChildProcess {
public:
    /**
     * Starts `command` (path of the program, then its arguments) with the environment of the test
     * and `extraEnvironment` ("NAME=value") on top. Throws std::system_error when that fails; a
     * program that cannot be executed ends with status 127.
     */
    explicit ChildProcess(const std::vector<std::string> &command,
                          const std::vector<std::string> &extraEnvironment = {});
    /** Kills the child unless it has ended, and reaps it. */
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    [[nodiscard]] pid_t pid() const { return child; }
    /** False once the child has ended. */
    [[nodiscard]] bool isRunning();
    /** Sends a signal, unless the child was reaped already. */
    void signal(int number);
    /** Kills the child and waits for its end. */
    void kill();
    /** Exit status, 128 + number for a signal; nothing when it still runs after `limit`. */
    std::optional<int> waitForExit(std::chrono::milliseconds limit);
    /** What the child has written to its standard output so far. */
    [[nodiscard]] std::string standardOutput() const;
    /** What the child has written to its standard error so far. */
    [[nodiscard]] std::string standardError() const;

private:
    void reap();

    pid_t child = -1;
    int processFd = -1;
    int outputFd = -1;
    int errorFd = -1;
    std::optional<int> exitStatus;
};

} // namespace test_support
