#include "event/daemon/connection.h"

#include "event/core/barrier.h"
#include "event/daemon/registry.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace norq::event {

Connection::Connection(std::string clientName, std::string ownerOnBus, Registry &routes,
                       OnEnd onEnd)
    : Client(std::move(clientName)),
      busName(std::move(ownerOnBus)),
      registry(routes),
      ended(std::move(onEnd)),
      received(MAX_EVENT_FRAME)
{
    registry.add(*this);
}

Connection::~Connection()
{
    registry.remove(*this);
}

Descriptor Connection::open(sd_event *loop)
{
    std::array<int, 2> pair{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()) < 0) {
        return {};
    }
    socket.reset(pair[0]);
    Descriptor forClient(pair[1]);
    if (sd_event_add_io(loop, Out(source), socket.get(), EPOLLIN, onSocket, this) < 0) {
        return {};
    }
    return forClient;
}

void Connection::drain()
{
    int waiting = 0;
    if (ioctl(socket.get(), FIONREAD, &waiting) < 0) {
        return;
    }
    auto left = static_cast<std::size_t>(waiting);
    while (left > 0) {
        std::size_t count = 0;
        if (receive(count) != Received::SOME) {
            return; // the end of the connection is noticed in its turn
        }
        left -= count < left ? count : left;
    }
}

Connection::Received Connection::receive(std::size_t &count)
{
    const auto room = received.room();
    const ssize_t result = recv(socket.get(), room.data(), room.size(), MSG_DONTWAIT);
    if (result < 0) {
        return errno == EAGAIN || errno == EINTR ? Received::NOTHING : Received::HANG_UP;
    }
    if (result == 0) {
        return Received::HANG_UP;
    }
    count = static_cast<std::size_t>(result);
    received.filled(count);
    const bool wellFormed = routeFrames();
    registry.flush();
    return wellFormed ? Received::SOME : Received::MALFORMED;
}

bool Connection::routeFrames()
{
    while (const auto content = received.next()) {
        const auto event = readEvent(*content);
        if (!event || registry.route(*this, *event) == Routing::MALFORMED) {
            return false;
        }
    }
    if (received.malformed()) {
        return false;
    }
    received.releaseIfEmpty();
    return true;
}

void Connection::flush()
{
    const DeliveryQueue::Written result = queue.write(socket.get());
    watchWritable(result == DeliveryQueue::Written::BLOCKED);
}

void Connection::watchWritable(bool wanted)
{
    if (std::exchange(watchesWritable, wanted) != wanted) {
        sd_event_source_set_io_events(source.get(), EPOLLIN | (wanted ? EPOLLOUT : 0U));
    }
}

int Connection::onSocket(sd_event_source * /*source*/, int /*descriptor*/, std::uint32_t events,
                         void *self)
{
    return withBarrier("Serving a client", -ENOMEM, [&] {
        auto *connection = static_cast<Connection *>(self);
        if ((events & EPOLLOUT) != 0) {
            connection->flush();
        }
        if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) == 0) {
            return 0;
        }
        std::size_t count = 0;
        const Received result = connection->receive(count);
        if (result == Received::HANG_UP || result == Received::MALFORMED) {
            connection->end(result == Received::HANG_UP ? End::HANG_UP : End::MALFORMED);
        }
        return 0;
    });
}

} // namespace norq::event
