/** The socket of one client. */
#pragma once

#include "event/core/bus_handles.h"
#include "event/core/frame_buffer.h"
#include "event/daemon/client.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace norq::event {

class Registry;

/** Reads events from a client's socket and writes its deliveries to it. */
class Connection final : public Client {
public:
    /** Why a connection is to be removed. */
    enum class End { HANG_UP, MALFORMED };
    /** Told when the connection is over; may destroy it. */
    using OnEnd = std::function<void(Connection &, End)>;

    Connection(std::string clientName, std::string ownerOnBus, Registry &routes, OnEnd onEnd);
    ~Connection() override;

    /**
     * Makes the pair of sockets and starts to serve one of them.
     * @return the other one, for the client; none when resources are exhausted
     */
    Descriptor open(sd_event *loop);
    /** Reads what the client has written up to now, and no more. */
    void drain();
    void flush() override;
    /** Says that the connection is over; it may be gone afterwards. */
    void end(End why)
    {
        const OnEnd call = ended; // outlives the connection
        call(*this, why);
    }

    /** The client's unique name on the bus. */
    const std::string busName;
    /** Watches that name; owned here so that it goes with the connection. */
    BusTrack track;

private:
    enum class Received { SOME, NOTHING, HANG_UP, MALFORMED };

    Received receive(std::size_t &count);
    bool routeFrames();
    void watchWritable(bool wanted);
    static int onSocket(sd_event_source *source, int descriptor, std::uint32_t events, void *self);

    Registry &registry;
    OnEnd ended;
    Descriptor socket;
    EventSource source;
    FrameBuffer received;
    bool watchesWritable = false;
};

} // namespace norq::event
