#include "event/tool/send_session.h"

#include "event/tool/failure.h"

#include <glib-unix.h>

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace norq::tool {

namespace {

/** The words of a line, as a shell would split it; none for a blank line. */
std::vector<std::string> wordsOf(const std::string &line)
{
    char **words = nullptr;
    GError *error = nullptr;
    const bool split = g_shell_parse_argv(line.c_str(), nullptr, &words, &error) != FALSE;
    const TextArray releaseWords(words);
    const ErrorHandle releaseError(error);
    if (!split) {
        if (g_error_matches(error, G_SHELL_ERROR, G_SHELL_ERROR_EMPTY_STRING) != FALSE) {
            return {};
        }
        throw UsageError(error->message);
    }
    std::vector<std::string> result;
    for (char **word = words; *word != nullptr; ++word) {
        result.emplace_back(*word);
    }
    return result;
}

} // namespace

SendSession::SendSession(const SendOptions &given)
    : options(given),
      sender(given),
      loop(g_main_loop_new(nullptr, FALSE)),
      interruption(loop.get()),
      input(STDIN_FILENO),
      remaining(given.count)
{
}

int SendSession::run()
{
    if (remaining > 0 && sender.isComplete()) {
        sendNext();
    } else {
        remaining = 0;
    }
    startRepeating();
    if (options.readInput) {
        const auto condition = static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR);
        g_unix_fd_add(STDIN_FILENO, condition, onInput, this);
    }
    if (options.hold) {
        std::fputs("holding\n", stderr);
    }
    if (options.hold || remaining > 0) {
        g_main_loop_run(loop.get());
    }
    const bool cutShort = !options.hold && remaining > 0;
    return failed || cutShort ? EXIT_FAILED : EXIT_DONE;
}

void SendSession::startRepeating()
{
    if (remaining == 0) {
        return;
    }
    if (options.interval > 0) {
        g_timeout_add(options.interval, onTimer, this);
    } else {
        g_idle_add(onTimer, this);
    }
}

bool SendSession::sendNext()
{
    sender.send();
    --remaining;
    return remaining > 0;
}

gboolean SendSession::onTimer(void *self) noexcept
{
    auto *session = static_cast<SendSession *>(self);
    try {
        if (session->sendNext()) {
            return G_SOURCE_CONTINUE;
        }
    } catch (const std::exception &failure) {
        session->fail(failure.what());
    }
    if (!session->options.hold) {
        session->quit();
    }
    return G_SOURCE_REMOVE;
}

gboolean SendSession::onInput(int, GIOCondition, void *self) noexcept
{
    auto *session = static_cast<SendSession *>(self);
    try {
        const auto take = [session](const std::string &line) { session->takeLine(line); };
        if (session->input.readOnce(take)) {
            return G_SOURCE_CONTINUE;
        }
    } catch (const std::exception &failure) {
        session->fail(failure.what());
    }
    session->quit();
    return G_SOURCE_REMOVE;
}

void SendSession::takeLine(const std::string &line)
{
    ++lineNumber;
    try {
        std::vector<std::pair<std::string, std::string>> changes;
        for (const std::string &word : wordsOf(line)) {
            changes.push_back(parsePair(word, "KEY=VALUE"));
        }
        sender.change(changes);
        if (sender.isComplete()) {
            sender.send();
        }
    } catch (const std::exception &failure) {
        fail("line " + std::to_string(lineNumber) + ": " + failure.what());
    }
}

void SendSession::fail(const std::string &text)
{
    failed = true;
    std::fprintf(stderr, "norq-event send: %s\n", text.c_str());
}

void SendSession::quit()
{
    g_main_loop_quit(loop.get());
}

} // namespace norq::tool
