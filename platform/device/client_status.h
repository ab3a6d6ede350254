/** The state of the device's MQTT client, as it announces it through the event service. */
#pragma once

#include <norq/event_consumer.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace norq::device {

/** What the MQTT client last announced. */
struct ClientStatus {
    bool active = false;
    bool connected = false;
};

/** A status with its place in the sequence of announcements. */
struct NumberedStatus {
    ClientStatus status;
    std::uint64_t number;
};

/**
 * Keeps the last announcement. It arrives on a thread of the event library; the rest is called on
 * one other thread. The event service does not say when a status is withdrawn: see forget().
 */
class ClientStatusWatch {
public:
    /** Subscribes; throws std::runtime_error when the library refuses. */
    ClientStatusWatch();
    ClientStatusWatch(const ClientStatusWatch &) = delete;
    ClientStatusWatch &operator=(const ClientStatusWatch &) = delete;
    /** Waits for a callback that is under way. */
    ~ClientStatusWatch() = default;

    /** The last announcement, nothing when there was none. */
    [[nodiscard]] std::optional<NumberedStatus> last() const;

    /** Drops the announcement with this number, unless a newer one has come. */
    void forget(std::uint64_t number);

private:
    using Consumer = std::unique_ptr<event_consumer_t, decltype(&event_consumer_free)>;

    static void onEvent(event_t *event, void *self);
    void keep(ClientStatus status);

    mutable std::mutex mutex; // guards the two below
    std::optional<NumberedStatus> kept;
    std::uint64_t announcements = 0;

    Consumer consumer; // last: its end waits for the callback, which uses the others
};

} // namespace norq::device
