#include "event/client/service_link.h"

#include "event/core/barrier.h"
#include "event/core/bus_names.h"
#include "event/core/log.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace norq::event {
namespace {

/** A link that lived as long as this before its loss is looked for again without delay. */
constexpr std::chrono::seconds STABLE_TIME{5};

/** The link whose thread this is. */
thread_local const ServiceLink *linkOfThread = nullptr;

void check(int result, const char *what)
{
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

/** Starts threads with all signals blocked: they belong to the program, not to its libraries. */
class BlockedSignals {
public:
    BlockedSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    BlockedSignals(const BlockedSignals &) = delete;
    BlockedSignals &operator=(const BlockedSignals &) = delete;

private:
    sigset_t former{};
};

} // namespace

ServiceLink::ServiceLink(std::string clientName, LinkUser &linkUser)
    : name(std::move(clientName)), user(linkUser), wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wakeUp) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    check(sd_event_new(Out(loop)), "sd_event_new");
    check(sd_event_add_io(loop.get(), Out(tasksSource), wakeUp.get(), EPOLLIN, onTasks, this),
          "sd_event_add_io");
}

ServiceLink::~ServiceLink()
{
    stop();
}

void ServiceLink::start()
{
    const BlockedSignals blocked;
    thread = std::thread([this] { run(); });
    pthread_setname_np(thread.native_handle(), "norq-event");
}

void ServiceLink::stop()
{
    if (thread.joinable()) {
        post([this] { sd_event_exit(loop.get(), 0); });
        thread.join();
    }
}

void ServiceLink::post(Task task)
{
    {
        const std::lock_guard guard(mutex);
        tasks.push_back(std::move(task));
    }
    eventfd_write(wakeUp.get(), 1); // fails only when it is set anyway
}

bool ServiceLink::isOwnThread() const
{
    return linkOfThread == this;
}

LinkState ServiceLink::settledState(Deadline deadline)
{
    std::unique_lock guard(mutex);
    stateSettled.wait_until(guard, deadline, [this] { return state != LinkState::CONNECTING; });
    return state;
}

void ServiceLink::setState(LinkState newState)
{
    const std::lock_guard guard(mutex);
    state = newState;
    stateSettled.notify_all();
}

void ServiceLink::run()
{
    linkOfThread = this;
    tryOpen();
    const int result = sd_event_loop(loop.get());
    if (result < 0) {
        norq_event_log(LOG_ERROR_LEVEL, "The event loop of client '%s' failed: %s", name.c_str(),
                       g_strerror(-result));
    }
    closeSocket();
    disconnectBus();
}

void ServiceLink::runTasks()
{
    eventfd_t count = 0;
    eventfd_read(wakeUp.get(), &count);
    while (const Task task = nextTask()) {
        withBarrier("A task for the event service", 0, [&] {
            task();
            return 0;
        });
    }
}

ServiceLink::Task ServiceLink::nextTask()
{
    const std::lock_guard guard(mutex);
    if (tasks.empty()) {
        return {};
    }
    Task task = std::move(tasks.front());
    tasks.pop_front();
    return task;
}

bool ServiceLink::connectBus()
{
    Bus fresh;
    int result = sd_bus_open_system_with_description(Out(fresh), "norq-event");
    if (result >= 0) {
        result = sd_bus_attach_event(fresh.get(), loop.get(), SD_EVENT_PRIORITY_NORMAL);
    }
    if (result >= 0) {
        const std::string rule =
            "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
            "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
            std::string(BUS_NAME) + "'";
        result = sd_bus_add_match_async(fresh.get(), Out(ownerMatch), rule.c_str(), onOwnerChanged,
                                        nullptr, this);
    }
    if (result >= 0) {
        result = sd_bus_match_signal_async(
            fresh.get(), Out(disconnectMatch), "org.freedesktop.DBus.Local",
            "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected",
            onDisconnected, nullptr, this);
    }
    if (result < 0) {
        attemptFailed(false, g_strerror(-result));
        return false;
    }
    bus = std::move(fresh);
    return true;
}

void ServiceLink::disconnectBus()
{
    openCall.reset();
    ownerMatch.reset();
    disconnectMatch.reset();
    bus.reset();
}

void ServiceLink::tryOpen()
{
    retrySource.reset();
    ownerAppeared = false;
    if (std::exchange(retryWithNewBus, false)) {
        disconnectBus();
    }
    if (!bus && !connectBus()) {
        return;
    }
    const int result =
        sd_bus_call_method_async(bus.get(), Out(openCall), BUS_NAME, BUS_PATH, BUS_INTERFACE,
                                 "Open", onOpenAnswer, this, "s", name.c_str());
    if (result < 0) {
        attemptFailed(false, g_strerror(-result));
    }
}

void ServiceLink::openAnswered(sd_bus_message *answer)
{
    openCall.reset();
    if (const sd_bus_error *error = sd_bus_message_get_error(answer)) {
        const bool absent = sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                                   SD_BUS_ERROR_NAME_HAS_NO_OWNER) != 0;
        attemptFailed(absent, error->message == nullptr ? error->name : error->message);
        return;
    }
    openedAt = std::chrono::steady_clock::now();
    const bool opened = withBarrier("Registering with the event service", false,
                                    [&] { return openSocket(answer); });
    if (!opened && socket) {
        lose("registering with it failed");
        return;
    }
    if (!opened) {
        attemptFailed(false, "it gave no socket");
        return;
    }
    setState(LinkState::READY);
    if (std::exchange(wasAway, false)) {
        norq_event_log(G_LOG_LEVEL_INFO, "The event service is there again for client '%s'",
                       name.c_str());
    }
}

bool ServiceLink::openSocket(sd_bus_message *answer)
{
    int lent = -1; // belongs to the message
    if (sd_bus_message_read(answer, "h", &lent) < 0) {
        return false;
    }
    socket.reset(fcntl(lent, F_DUPFD_CLOEXEC, 3));
    if (!socket) {
        return false;
    }
    service.emplace(bus.get(), sd_bus_message_get_sender(answer));
    const int result =
        sd_event_add_io(loop.get(), Out(socketSource), socket.get(), EPOLLIN, onSocket, this);
    return result >= 0 && user.onOpened(*service, socket.get());
}

void ServiceLink::attemptFailed(bool serviceIsAbsent, const char *reason)
{
    setState(LinkState::AWAY);
    if (!std::exchange(wasAway, true)) {
        norq_event_log(G_LOG_LEVEL_INFO, "Client '%s' waits for the event service: %s",
                       name.c_str(), reason);
    }
    if (std::exchange(ownerAppeared, false)) {
        retryAfter(std::chrono::milliseconds::zero(), false);
    } else if (!serviceIsAbsent) {
        retryAfter(backOff.next(), true);
    }
}

void ServiceLink::lose(const char *reason)
{
    const bool wasOpen = static_cast<bool>(socket);
    closeSocket();
    if (!wasOpen) {
        return; // an attempt under way fails by itself
    }
    if (std::chrono::steady_clock::now() - openedAt > STABLE_TIME) {
        backOff.reset();
    }
    const auto delay = backOff.next();
    setState(delay.count() == 0 ? LinkState::CONNECTING : LinkState::AWAY);
    if (!std::exchange(wasAway, true)) {
        norq_event_log(G_LOG_LEVEL_WARNING, "Client '%s' lost the event service: %s", name.c_str(),
                       reason);
    }
    retryAfter(delay, false);
}

void ServiceLink::closeSocket()
{
    if (!socket) {
        return;
    }
    socketSource.reset();
    service.reset();
    shutdown(socket.get(), SHUT_RDWR); // ends the wait of a caller who is about to write
    user.onClosed();
    socket.reset();
}

void ServiceLink::watchWritable(bool wanted)
{
    if (socketSource) {
        sd_event_source_set_io_events(socketSource.get(), EPOLLIN | (wanted ? EPOLLOUT : 0U));
    }
}

void ServiceLink::retryAfter(std::chrono::milliseconds delay, bool withNewBus)
{
    retryWithNewBus = retryWithNewBus || withNewBus;
    const auto microseconds = static_cast<std::uint64_t>(delay.count()) * 1000;
    const int result = sd_event_add_time_relative(loop.get(), Out(retrySource), CLOCK_MONOTONIC,
                                                  microseconds, 0, onRetry, this);
    if (result < 0) {
        norq_event_log(LOG_ERROR_LEVEL, "Client '%s' cannot look for the event service: %s",
                       name.c_str(), g_strerror(-result));
    }
}

void ServiceLink::ownerChanged(const std::string &newOwner)
{
    if (service) {
        if (service->serviceName() != newOwner) {
            lose("it left the bus");
        }
    } else if (newOwner.empty()) {
        return;
    } else if (openCall) {
        ownerAppeared = true;
    } else {
        setState(LinkState::CONNECTING);
        tryOpen();
    }
}

int ServiceLink::onTasks(sd_event_source * /*source*/, int /*descriptor*/, std::uint32_t /*events*/,
                         void *self)
{
    return withBarrier("Running tasks for the event service", 0, [self] {
        static_cast<ServiceLink *>(self)->runTasks();
        return 0;
    });
}

int ServiceLink::onSocket(sd_event_source * /*source*/, int descriptor, std::uint32_t events,
                          void *self)
{
    auto *link = static_cast<ServiceLink *>(self);
    const bool alive = withBarrier("Handling the event socket", false, [&] {
        if ((events & EPOLLOUT) != 0) {
            link->user.onWritable();
        }
        return (events & ~static_cast<std::uint32_t>(EPOLLOUT)) == 0 ||
               link->user.onReadable(descriptor);
    });
    if (!alive) {
        link->lose("its socket was closed");
    }
    return 0;
}

int ServiceLink::onRetry(sd_event_source * /*source*/, std::uint64_t /*now*/, void *self)
{
    return withBarrier("Looking for the event service", 0, [self] {
        static_cast<ServiceLink *>(self)->tryOpen();
        return 0;
    });
}

int ServiceLink::onOpenAnswer(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    return withBarrier("Opening the event service", 0, [&] {
        static_cast<ServiceLink *>(self)->openAnswered(message);
        return 0;
    });
}

int ServiceLink::onOwnerChanged(sd_bus_message *message, void *self, sd_bus_error * /*error*/)
{
    const char *owner = nullptr;
    if (sd_bus_message_read(message, "sss", nullptr, nullptr, &owner) < 0) {
        return 0;
    }
    return withBarrier("Following the event service", 0, [&] {
        static_cast<ServiceLink *>(self)->ownerChanged(owner);
        return 0;
    });
}

int ServiceLink::onDisconnected(sd_bus_message * /*message*/, void *self, sd_bus_error * /*error*/)
{
    auto *link = static_cast<ServiceLink *>(self);
    return withBarrier("Losing the bus", 0, [link] {
        if (link->service) {
            link->lose("the bus is gone");
            link->retryWithNewBus = true;
        } else {
            link->attemptFailed(false, "the bus is gone");
        }
        return 0;
    });
}

} // namespace norq::event
