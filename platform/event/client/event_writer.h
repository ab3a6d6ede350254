/** The writing side of an event socket. */
#pragma once

#include "event/client/timed_lock.h"

#include <string>
#include <string_view>

namespace norq::event {

/**
 * Writes frames whole or not at all, within a deadline. The kernel may take a part of a large frame
 * only; then the frame counts as taken and the writer keeps the rest, one frame at most, to write
 * it first of all next time. Not thread-safe: its user holds a lock.
 */
class EventWriter {
public:
    enum class Result {
        TAKEN,     /**< the service will get it */
        TIMED_OUT, /**< nothing of it was written in time */
        CLOSED     /**< there is no service */
    };

    /** Starts with a fresh socket, or with -1 for none. The socket stays somebody else's. */
    void attach(int newSocket);
    /** Writes a frame. */
    Result write(std::string_view frame, Deadline deadline);
    /** Writes the rest that was kept, as far as possible until the deadline. */
    Result writeRest(Deadline deadline);
    /** Whether a rest is kept. */
    [[nodiscard]] bool hasRest() const { return !rest.empty(); }

private:
    Result writeSome(std::string_view &bytes, Deadline deadline) const;

    int socket = -1;
    std::string rest;
};

} // namespace norq::event
