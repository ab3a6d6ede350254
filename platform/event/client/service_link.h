/**
 * The connection of one producer or consumer to the event service: a thread, a bus connection and
 * the event socket that the service hands out over it.
 */
#pragma once

#include "event/client/back_off.h"
#include "event/client/service_calls.h"
#include "event/client/timed_lock.h"
#include "event/core/bus_handles.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace norq::event {

/** What a producer or consumer does with its link. All of it is called on the link's thread. */
class LinkUser {
public:
    LinkUser() = default;
    virtual ~LinkUser() = default;
    LinkUser(const LinkUser &) = delete;
    LinkUser &operator=(const LinkUser &) = delete;

    /** There is a service that knows nothing yet: registers everything. False gives it up. */
    virtual bool onOpened(ServiceCalls &calls, int socket) = 0;
    /** The socket can be read. False when it has come to its end or brings what it must not. */
    virtual bool onReadable(int socket) = 0;
    /** The socket can be written, after watchWritable(). */
    virtual void onWritable() {}
    /** The service is gone. The socket is shut down and about to be closed. */
    virtual void onClosed() = 0;
};

/** Whether the service can be reached. */
enum class LinkState {
    CONNECTING, /**< about to be found out */
    READY,      /**< everything is registered */
    AWAY        /**< not now; the link waits for its return */
};

/**
 * Keeps a link to the event service: opens it, notices its loss, opens it again. The thread sleeps
 * unless something happens; it tries again by time only while an attempt has failed for another
 * reason than the absence of the service.
 */
class ServiceLink {
public:
    using Task = std::function<void()>;

    /** Throws std::system_error when resources are exhausted. Nothing runs before start(). */
    ServiceLink(std::string clientName, LinkUser &linkUser);
    /** Calls stop(). */
    ~ServiceLink();
    ServiceLink(const ServiceLink &) = delete;
    ServiceLink &operator=(const ServiceLink &) = delete;

    /** Starts the thread. Throws std::system_error. */
    void start();
    /** Ends the thread and waits for it. When it returns the user is not called any more. */
    void stop();

    /** Runs a task on the thread, after those handed in before. Not after stop(). Any thread. */
    void post(Task task);
    /** Whether the caller is the link's thread. */
    [[nodiscard]] bool isOwnThread() const;
    /** Waits while the state is CONNECTING, until the deadline. Any thread. */
    LinkState settledState(Deadline deadline);

    /** @name On the link's thread only @{ */
    /** The service, while there is an open link; otherwise nullptr. */
    ServiceCalls *calls() { return service ? &*service : nullptr; }
    /** Gives the service up, as after its loss, and looks for it anew. */
    void lose(const char *reason);
    /** Whether onWritable() is wanted. */
    void watchWritable(bool wanted);
    /** @} */

private:
    void run();
    void runTasks();
    Task nextTask();
    bool connectBus();
    void disconnectBus();
    void tryOpen();
    void openAnswered(sd_bus_message *answer);
    bool openSocket(sd_bus_message *answer);
    void attemptFailed(bool serviceIsAbsent, const char *reason);
    void ownerChanged(const std::string &newOwner);
    void retryAfter(std::chrono::milliseconds delay, bool withNewBus);
    void closeSocket();
    void setState(LinkState newState);

    static int onTasks(sd_event_source *source, int descriptor, std::uint32_t events, void *self);
    static int onSocket(sd_event_source *source, int descriptor, std::uint32_t events, void *self);
    static int onRetry(sd_event_source *source, std::uint64_t now, void *self);
    static int onOpenAnswer(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onOwnerChanged(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onDisconnected(sd_bus_message *message, void *self, sd_bus_error *error);

    const std::string name;
    LinkUser &user;

    std::mutex mutex; // guards state, tasks
    std::condition_variable stateSettled;
    LinkState state = LinkState::CONNECTING;
    std::deque<Task> tasks;
    Descriptor wakeUp;
    std::thread thread;

    // The rest belongs to the thread once it runs.
    EventLoop loop;
    EventSource tasksSource;
    EventSource retrySource;
    bool retryWithNewBus = false;
    Bus bus;
    BusSlot ownerMatch;
    BusSlot disconnectMatch;
    BusSlot openCall;
    bool ownerAppeared = false; // while openCall is under way
    Descriptor socket;
    EventSource socketSource;
    std::optional<ServiceCalls> service;
    std::chrono::steady_clock::time_point openedAt;
    BackOff backOff;
    bool wasAway = false;
};

} // namespace norq::event
