/** When libmosquitto's keepalive has to be looked at, so that nothing wakes up in between. */
#pragma once

#include <chrono>

namespace norq::mqtt {

/**
 * Follows the times that libmosquitto keeps for itself, in its whole seconds: it sends a ping when
 * nothing was written or read for the keepalive time, and gives the connection up when the ping is
 * not answered for as long again.
 *
 * While reading is held back the answer to a ping waits unread behind messages, and libmosquitto
 * would take the broker for dead. From then on until the backlog is read the watch asks for a
 * substitute, any other packet, to show the broker that the client lives.
 */
class KeepaliveWatch {
public:
    using TimePoint = std::chrono::milliseconds; // since any fixed point

    enum class Action {
        NOTHING,
        /** Let libmosquitto do what is due. */
        KEEP_ALIVE,
        /** Write some packet that the broker answers. */
        SUBSTITUTE,
    };

    explicit KeepaliveWatch(std::chrono::seconds time) : keepalive(time) {}

    /** The connection was established. */
    void began(TimePoint now);
    void wrote(TimePoint now) { lastWrite = now; }
    void received(TimePoint now) { lastRead = now; }
    /** A ping was queued. */
    void pinged(TimePoint now);
    /** Libmosquitto had nothing to do: it counts from a little later. */
    void postpone(TimePoint now);
    /** Reading is held back; to be called again as long as it is. */
    void heldBack(TimePoint now);
    /** Everything that has arrived is read. */
    void caughtUp(TimePoint now);

    [[nodiscard]] Action due(TimePoint now) const;
    /** When due() may first give something else than NOTHING. */
    [[nodiscard]] TimePoint next() const;

private:
    [[nodiscard]] TimePoint after(TimePoint last) const;

    std::chrono::seconds keepalive;
    TimePoint lastWrite{};
    TimePoint lastRead{};
    TimePoint lastPing{};
    TimePoint notBefore{};
    bool everPinged = false;
    bool pingBehindBacklog = false;
    bool backlog = false;
};

} // namespace norq::mqtt
