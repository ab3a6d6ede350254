/** Tells the device through the event service whether MQTT is active and connected. */
#pragma once

#include <norq/event_producer.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

namespace norq::mqtt {

/** The status of a client. */
struct ClientStatus {
    bool active = false;
    bool connected = false;
    bool operator==(const ClientStatus &) const = default;
};

/**
 * Announces changes of status in order, on a thread of its own, so that neither the I/O thread nor
 * a caller ever waits for the event service. While the service is away only the latest status is
 * kept, and offered again with growing distance until it is taken.
 */
class StatusAnnouncer {
public:
    StatusAnnouncer();
    /** Stops. */
    ~StatusAnnouncer();
    StatusAnnouncer(const StatusAnnouncer &) = delete;
    StatusAnnouncer &operator=(const StatusAnnouncer &) = delete;

    /** Announces a status unless it is the one announced last. Any thread, never blocks. */
    void announce(ClientStatus status);
    /** Withdraws the status event and ends the thread; waits for the event service at most
     * SEND_TIMEOUT_MS. Nothing is announced afterwards. */
    void stop();

    /** Longest wait for the event service in milliseconds. */
    static constexpr int SEND_TIMEOUT_MS = 500;

private:
    using Producer = std::unique_ptr<event_producer_t, decltype(&event_producer_free)>;

    void run();
    void work(event_producer_t *producer, int declaration);

    std::mutex mutex; // guards changes, last and stopping
    std::condition_variable changed;
    std::deque<ClientStatus> changes;
    ClientStatus last;
    bool anyAnnounced = false;
    bool stopping = false;
    std::thread thread;
};

} // namespace norq::mqtt
