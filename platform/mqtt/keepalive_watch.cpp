#include "mqtt/keepalive_watch.h"

#include <algorithm>

namespace norq::mqtt {

using std::chrono::seconds;

void KeepaliveWatch::began(TimePoint now)
{
    *this = KeepaliveWatch(keepalive);
    lastWrite = now;
    lastRead = now;
}

void KeepaliveWatch::pinged(TimePoint now)
{
    everPinged = true;
    lastPing = now;
    lastWrite = now;
    lastRead = now;
    pingBehindBacklog = backlog;
}

void KeepaliveWatch::postpone(TimePoint now)
{
    notBefore = now + seconds(1);
}

void KeepaliveWatch::heldBack(TimePoint now)
{
    if (!backlog) {
        backlog = true;
        pingBehindBacklog = everPinged && now - lastPing <= keepalive + seconds(1);
    }
    // Data is there to be read, so the broker is not silent.
    lastRead = now;
}

void KeepaliveWatch::caughtUp(TimePoint now)
{
    // The rest of the backlog may still be on the wire for a moment.
    if (backlog && now - lastRead >= seconds(1)) {
        backlog = false;
        pingBehindBacklog = false;
    }
}

KeepaliveWatch::TimePoint KeepaliveWatch::after(TimePoint last) const
{
    return std::max<TimePoint>(std::chrono::floor<seconds>(last) + keepalive, notBefore);
}

KeepaliveWatch::TimePoint KeepaliveWatch::next() const
{
    return std::min(after(lastWrite), after(lastRead));
}

KeepaliveWatch::Action KeepaliveWatch::due(TimePoint now) const
{
    if (now >= after(lastRead)) {
        return Action::KEEP_ALIVE;
    }
    if (now < after(lastWrite)) {
        return Action::NOTHING;
    }
    return pingBehindBacklog ? Action::SUBSTITUTE : Action::KEEP_ALIVE;
}

} // namespace norq::mqtt
