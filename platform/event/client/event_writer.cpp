#include "event/client/event_writer.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace norq::event {
namespace {

/** Waits until the socket takes bytes or reports an error; false when the deadline has come. */
bool waitWritable(int socket, Deadline deadline)
{
    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left <= milliseconds::zero()) {
        return false;
    }
    pollfd writable{socket, POLLOUT, 0};
    const auto limit = std::min(left, milliseconds(60'000)); // the caller comes back for more
    return poll(&writable, 1, static_cast<int>(limit.count())) >= 0 || errno == EINTR;
}

} // namespace

void EventWriter::attach(int newSocket)
{
    socket = newSocket;
    rest.clear();
}

EventWriter::Result EventWriter::write(std::string_view frame, Deadline deadline)
{
    if (const Result former = writeRest(deadline); former != Result::TAKEN) {
        return former;
    }
    const std::size_t whole = frame.size();
    const Result result = writeSome(frame, deadline);
    if (result == Result::TIMED_OUT && frame.size() < whole) {
        rest = frame;
        return Result::TAKEN;
    }
    return result;
}

EventWriter::Result EventWriter::writeRest(Deadline deadline)
{
    std::string_view bytes = rest;
    const Result result = writeSome(bytes, deadline);
    rest.erase(0, rest.size() - bytes.size());
    return result;
}

EventWriter::Result EventWriter::writeSome(std::string_view &bytes, Deadline deadline) const
{
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN) {
            if (!waitWritable(socket, deadline)) {
                return Result::TIMED_OUT;
            }
        } else if (errno != EINTR) {
            return Result::CLOSED;
        }
    }
    return Result::TAKEN;
}

} // namespace norq::event
