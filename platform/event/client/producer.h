/** What stands behind event_producer_t. */
#pragma once

#include "event/client/event_handle.h"
#include "event/client/event_writer.h"
#include "event/client/service_link.h"
#include "event/client/timed_lock.h"
#include "event/core/event_content.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace norq::event {

/** A producer. All of it may be called from any thread. */
class Producer final : private LinkUser {
public:
    /** Waits for the service, but no longer than `longestWait`. Throws std::system_error. */
    Producer(const std::string &name, void *userData, std::chrono::milliseconds longestWait);
    ~Producer() override;

    /** Id of the new declaration; a failure when there are too many or the service refuses. */
    Status declare(SharedDeclaration declaration, int &id);
    Status undeclare(int id);
    Status prepare(int id, std::int64_t time, std::unique_ptr<::event> &prepared);
    Status send(const ::event &prepared);
    [[nodiscard]] void *userData() const { return pointer; }

private:
    struct Entry {
        SharedDeclaration declaration;
        bool registered = false; // the service at the other end of the socket knows it
        std::string lastValue;   // frame with the last value of a property; empty before the first
    };
    using Entries = std::map<int, Entry>;

    bool onOpened(ServiceCalls &calls, int socket) override;
    bool onReadable(int socket) override;
    void onWritable() override;
    void onClosed() override;

    [[nodiscard]] Deadline deadline() const;
    CallResult registerWith(ServiceCalls &calls, int id);
    CallResult registerNow(int id);
    bool handOverLastValue(int id);
    bool isDeclared(int id);
    Status sendFrame(int id, const EventContent &content, Deadline end);
    void finishRest();

    void *pointer;
    const std::chrono::milliseconds timeout;
    const std::uint64_t identity;

    TimedLock writing; // guards writer and the order of events; taken before mutex
    EventWriter writer;
    std::mutex mutex; // guards entries, nextId
    Entries entries;
    int nextId = 0;
    ServiceLink link; // the last member: its thread ends before the others go
};

} // namespace norq::event
