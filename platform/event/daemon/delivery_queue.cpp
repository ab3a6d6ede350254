#include "event/daemon/delivery_queue.h"

#include "event/core/frames.h"
#include "event/daemon/limits.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace norq::event {

void DeliveryQueue::push(Delivery delivery)
{
    if (backlog.empty() && ready.size() - written < WRITE_SIZE) {
        encode(delivery);
        return;
    }
    bytes += delivery.size();
    backlog.push_back(std::move(delivery));
    while (backlog.size() > MAX_BACKLOG_EVENTS ||
           (bytes > MAX_BACKLOG_BYTES && backlog.size() > 1)) {
        dropOldest();
    }
}

void DeliveryQueue::dropOldest()
{
    if (backlog.size() < 2) {
        return;
    }
    bytes -= backlog.front().size();
    backlog.pop_front();
    noticePending = noticePending || !dropping;
    dropping = true;
}

bool DeliveryQueue::takeDropNotice()
{
    return std::exchange(noticePending, false);
}

DeliveryQueue::Written DeliveryQueue::write(int socket)
{
    while (true) {
        refill();
        if (!hasBytes()) {
            return Written::ALL;
        }
        const ssize_t count = send(socket, ready.data() + written, ready.size() - written,
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            return Written::BLOCKED;
        } else if (errno != EINTR) {
            return Written::CLOSED;
        }
    }
}

void DeliveryQueue::encode(const Delivery &delivery)
{
    const std::uint32_t slot = slots.slotOf(*delivery.published, ready);
    appendDelivery(ready, delivery.flags, slot, delivery.subscriptions, *delivery.body);
}

/** Takes deliveries out of the backlog once everything encoded before is written. */
void DeliveryQueue::refill()
{
    if (hasBytes()) {
        return;
    }
    written = 0;
    ready.clear();
    if (ready.capacity() > 2 * WRITE_SIZE) {
        ready.shrink_to_fit(); // a large event should not cost memory for good
    }
    while (!backlog.empty() && ready.size() < WRITE_SIZE) {
        bytes -= backlog.front().size();
        encode(backlog.front());
        backlog.pop_front();
    }
    dropping = dropping && !backlog.empty();
}

} // namespace norq::event
