#include "event/tool/watch_session.h"

#include "event/tool/event_text.h"
#include "event/tool/failure.h"
#include "event/tool/interruption.h"
#include "event/tool/service.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

namespace norq::tool {

namespace {

constexpr const char *CLIENT_NAME = "norq-event";

void require(int succeeded, const std::string &condition)
{
    if (succeeded == 0) {
        throw UsageError("the condition on " + condition +
                         " is refused: given twice, too long, or too many");
    }
}

void addTopic(subscribe_expression_t *expression, const TopicFilter &topic)
{
    for (std::size_t index = 0; index < topic.levels.size(); ++index) {
        const std::string key = topicKey(index);
        const TopicLevel &level = topic.levels[index];
        require(subscribe_expression_add_key_value(expression, key.c_str(), level.name.c_str()),
                key);
        if (level.nameSpace) {
            require(subscribe_expression_set_name_space(expression, key.c_str(),
                                                        level.nameSpace->c_str()),
                    key);
        }
    }
    if (!topic.withSubtopics) {
        const std::string below = topicKey(topic.levels.size());
        require(subscribe_expression_add_not_key(expression, below.c_str()), below);
    }
}

Expression expressionOf(const WatchOptions &options)
{
    Expression expression(subscribe_expression_new());
    addTopic(expression.get(), options.topic);
    for (const auto &[key, value] : options.matches) {
        require(subscribe_expression_add_key_value(expression.get(), key.c_str(), value.c_str()),
                key);
    }
    for (const auto &[key, nameSpace] : options.nameSpaces) {
        require(
            subscribe_expression_set_name_space(expression.get(), key.c_str(), nameSpace.c_str()),
            key);
    }
    for (const std::string &key : options.absent) {
        require(subscribe_expression_add_not_key(expression.get(), key.c_str()), key);
    }
    return expression;
}

void writeLine(const std::string &line)
{
    // line by line, so that a reader gets each event at once
    if (std::fprintf(stdout, "%s\n", line.c_str()) < 0 || std::fflush(stdout) != 0) {
        throw Failure(std::string("cannot write: ") + g_strerror(errno));
    }
}

} // namespace

WatchSession::WatchSession(WatchOptions given)
    : options(std::move(given)), loop(g_main_loop_new(nullptr, FALSE))
{
}

int WatchSession::run()
{
    requireService();
    subscribe();
    const Interruption interruption(loop.get());
    std::fputs("watching\n", stderr);
    if (options.timeout) {
        g_timeout_add_seconds(*options.timeout, onTimeout, this);
    }
    if (options.count == 0U) {
        quit();
    }
    g_main_loop_run(loop.get());
    ended = true;
    consumer.reset();
    return exitStatus(interruption.happened());
}

void WatchSession::subscribe()
{
    const Expression expression = expressionOf(options);
    consumer.reset(event_consumer_new(CLIENT_NAME));
    if (!consumer) {
        throw Failure("no connection to the event service");
    }
    if (event_consumer_subscribe(consumer.get(), expression.get(), onEvent, this) < 0) {
        throw Failure("the event service refuses the subscription");
    }
}

int WatchSession::exitStatus(bool interrupted) const
{
    if (failed) {
        return EXIT_FAILED;
    }
    if (!options.count || printed >= *options.count) {
        return EXIT_DONE;
    }
    const std::string reached =
        std::to_string(printed) + " of " + std::to_string(*options.count) + " events";
    std::fprintf(stderr, "norq-event watch: %s after %s\n",
                 interrupted ? "interrupted" : "the time was over", reached.c_str());
    return timedOut && !interrupted ? EXIT_TIMED_OUT : EXIT_FAILED;
}

void WatchSession::onEvent(event_t *event, void *self) noexcept
{
    const Event owned(event);
    auto *session = static_cast<WatchSession *>(self);
    if (session->ended || (!session->options.initial && event_is_initial(event) != 0)) {
        return;
    }
    try {
        session->print(event);
    } catch (const std::exception &failure) {
        session->fail(failure.what());
    }
}

void WatchSession::print(const event_t *event)
{
    const MallocText document(event_get_json(event, nullptr));
    if (!document) {
        throw Failure("an event cannot be rendered");
    }
    writeLine(options.json ? document.get() : eventLine(document.get()));
    if (++printed == options.count) {
        quit();
    }
}

void WatchSession::fail(const std::string &text)
{
    std::fprintf(stderr, "norq-event watch: %s\n", text.c_str());
    failed = true;
    quit();
}

void WatchSession::quit()
{
    ended = true;
    // an idle call rather than g_main_loop_quit(): that one is lost on a loop that does not run yet
    g_idle_add(onQuit, this);
}

gboolean WatchSession::onTimeout(void *self) noexcept
{
    auto *session = static_cast<WatchSession *>(self);
    session->timedOut = true;
    g_main_loop_quit(session->loop.get());
    return G_SOURCE_REMOVE;
}

gboolean WatchSession::onQuit(void *self) noexcept
{
    g_main_loop_quit(static_cast<WatchSession *>(self)->loop.get());
    return G_SOURCE_REMOVE;
}

} // namespace norq::tool
