#include "mqtt/connection.h"

#include "mqtt/quiet_thread.h"

#include <glib.h>
#include <mosquitto.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <exception>
#include <utility>

namespace norq::mqtt {
namespace {

using std::chrono::milliseconds;

/** Packets read in a row before the other duties of the thread get their turn. */
constexpr int MAX_READS = 256;
/** Nobody's subscription: unsubscribing it is a packet that every broker answers and that changes
 * nothing. */
constexpr const char *KEEPALIVE_FILTER = "$norq/keepalive";

} // namespace

Connection::Connection(SharedParts shared)
    : parts(std::move(shared)),
      log(parts.settings.host + ":" + std::to_string(parts.settings.port)),
      delivery(*parts.outbound),
      keepalive(std::chrono::seconds(parts.settings.keepalive))
{
}

void Connection::start()
{
    thread = startQuietThread([self = shared_from_this()] { self->run(); });
}

void Connection::stop()
{
    stopRequested = true;
    parts.wake->signal();
    std::unique_lock lock(endMutex);
    const bool inTime = endChanged.wait_for(lock, STOP_TIME, [this] { return ended; });
    lock.unlock();
    if (!inTime && lookingUp) {
        thread.detach();
    } else {
        thread.join();
    }
}

void Connection::run() noexcept
{
    pthread_setname_np(pthread_self(), "norq-mqtt");
    try {
        BrokerLink link(parts.settings, parts.clientId, *this);
        loop(link);
        leave(link);
    } catch (const std::exception &error) {
        g_critical("MQTT: the connection ends for good: %s", error.what());
        parts.status->announce({.active = true, .connected = false});
    }
    const std::lock_guard guard(endMutex);
    ended = true;
    endChanged.notify_one();
}

void Connection::loop(BrokerLink &link)
{
    while (!stopRequested) {
        if (phase == Phase::WAITING && now() >= deadline) {
            beginAttempt(link);
            continue;
        }
        wait(link);
        serveConnection(link);
        link.release();
        noteWrites(link);
        watchTime(link);
    }
}

Connection::TimePoint Connection::now()
{
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::duration_cast<TimePoint>(std::chrono::seconds(time.tv_sec) +
                                                 std::chrono::nanoseconds(time.tv_nsec));
}

int Connection::pollTimeout(BrokerLink &link) const
{
    const bool readsOn = moreToRead && reading && !link.wantsWrite();
    if (phase == Phase::CONNECTED && (readsOn || delivery.hasWork())) {
        return 0;
    }
    const TimePoint next = phase == Phase::CONNECTED ? keepalive.next() : deadline;
    return static_cast<int>(std::max<TimePoint::rep>(0, (next - now()).count() + 1));
}

void Connection::wait(BrokerLink &link)
{
    // Until the broker has accepted the connection no message can come that there is no room for.
    reading = phase != Phase::CONNECTED || parts.inbound->hasRoom();
    std::array<pollfd, 2> descriptors{{{parts.wake->fd(), POLLIN, 0}, awaited(link)}};
    if (poll(descriptors.data(), descriptors.size(), pollTimeout(link)) < 0) {
        return;
    }
    if (descriptors[0].revents != 0) {
        parts.wake->drain();
    }
    link.holdBack();
    serveSocket(link, descriptors[1].revents);
}

pollfd Connection::awaited(const BrokerLink &link) const
{
    if (phase == Phase::WAITING) {
        return {parting.get(), POLLRDHUP, 0};
    }
    const int wanted = (reading ? POLLIN : 0) | (link.wantsWrite() ? POLLOUT : 0);
    // A hang-up would be reported all the same, again and again, before it can be read.
    return {wanted == 0 ? -1 : link.fd(), static_cast<short>(wanted), 0};
}

void Connection::beginAttempt(BrokerLink &link)
{
    parting.close();
    if (receivesQos2 && parts.settings.cleanSession) {
        startAnew(link);
    }
    phase = Phase::CONNECTING;
    accepted = false;
    refusal.clear();
    moreToRead = false;
    const auto limit = std::min(CONNECT_TIME, std::chrono::seconds(parts.settings.keepalive));
    errno = 0;
    lookingUp = true;
    const int code = link.connect(addresses);
    const int reason = errno;
    overIpv6 = link.isOverIpv6();
    lookingUp = false;
    if (stopRequested) {
        return; // perhaps long ago: nobody wants to know any more
    }
    deadline = now() + limit;
    errno = reason;
    check(link, code);
}

bool Connection::check(BrokerLink &link, int code)
{
    if (code != MOSQ_ERR_SUCCESS) {
        fail(link, refusal.empty() ? reasonOf(link, code) : refusal);
        return false;
    }
    if (link.fd() < 0) {
        fail(link, link.reason(MOSQ_ERR_CONN_LOST));
        return false;
    }
    return true;
}

std::string Connection::reasonOf(const BrokerLink &link, int code) const
{
    std::string reason = link.reason(code);
    // Some brokers confirm QoS 2 as if it were QoS 1. The messages would go round for ever.
    if (code != MOSQ_ERR_PROTOCOL || !delivery.awaitsQos2()) {
        return reason;
    }
    return reason + " The broker still had to confirm messages of QoS 2: set maximum-qos=1 if it "
                    "has no QoS 2.";
}

void Connection::serveSocket(BrokerLink &link, short events)
{
    if (phase == Phase::WAITING) {
        if (events != 0) {
            deadline = now();
        }
        return;
    }
    // A TLS handshake that meets a connection refused counts as not yet finished with libmosquitto.
    if (phase == Phase::CONNECTING && (events & POLLHUP) != 0 && link.hasEnded()) {
        fail(link, link.reason(MOSQ_ERR_ERRNO));
        return;
    }
    if ((events & POLLOUT) != 0 || (events != 0 && !reading)) {
        if (!check(link, link.write())) {
            return;
        }
    }
    if (reading && ((events & ~POLLOUT) != 0 || moreToRead)) {
        readAll(link);
    }
}

void Connection::readAll(BrokerLink &link)
{
    moreToRead = true;
    for (int count = 0; count < MAX_READS && moreToRead; ++count) {
        if (phase == Phase::CONNECTED && !parts.inbound->hasRoom()) {
            break;
        }
        const bool couldNotWrite = link.wantsWrite();
        bool exhausted = false;
        if (!check(link, link.read(exhausted))) {
            return;
        }
        if (accepted && phase == Phase::CONNECTING) {
            becomeConnected(link);
            if (phase != Phase::CONNECTED) {
                return;
            }
        }
        moreToRead = !exhausted || link.wantsWrite();
        if (exhausted && couldNotWrite) {
            break;
        }
        if (link.wantsWrite() && !check(link, link.write())) {
            return;
        }
    }
    keepalive.received(now());
    delivery.settle();
}

void Connection::becomeConnected(BrokerLink &link)
{
    if (sessionIsLost()) {
        beginAnew(link);
        return;
    }
    phase = Phase::CONNECTED;
    link.connected();
    connectedSince = now();
    keepalive.began(connectedSince);
    subscribing.clear();
    parts.subscriptions->connectionBegan(brokerHasSession);
    log.connected();
    announced = false;
}

bool Connection::sessionIsLost() const
{
    return accepted && receivesQos2 && !brokerHasSession && !parts.settings.cleanSession;
}

void Connection::beginAnew(BrokerLink &link)
{
    // The next connection continues the session that the broker has begun now. This one is left in
    // order, or the broker would publish the last will; so would it if the next one got there
    // first, on another way through the network.
    parting = link.duplicate();
    link.write();
    startAnew(link);
    phase = Phase::WAITING;
    deadline = now() + (parting ? PARTING_TIME : std::chrono::seconds(0));
}

void Connection::startAnew(BrokerLink &link)
{
    link.startAnew();
    delivery.startAnew();
    receivesQos2 = false;
}

void Connection::announceWhenRoomy()
{
    if (!announced && parts.outbound->isHalfFree()) {
        announced = true;
        parts.status->announce({.active = true, .connected = true});
    }
}

void Connection::serveConnection(BrokerLink &link)
{
    if (phase != Phase::CONNECTED) {
        return;
    }
    sendSubscriptions(link);
    if (check(link, delivery.run(link))) {
        announceWhenRoomy();
    }
}

void Connection::noteWrites(BrokerLink &link)
{
    if (writesSeen != link.writes()) {
        writesSeen = link.writes();
        keepalive.wrote(now());
    }
}

void Connection::sendSubscriptions(BrokerLink &link)
{
    for (const SubscriptionTable::Change &change : parts.subscriptions->takeChanges()) {
        int messageId = 0;
        const int code = change.qos ? link.subscribe(messageId, change.filter, *change.qos)
                                    : link.unsubscribe(change.filter);
        if (code != MOSQ_ERR_SUCCESS) {
            g_warning("MQTT: the subscription of \"%s\" cannot be changed: %s",
                      change.filter.c_str(), mosquitto_strerror(code));
        } else if (change.qos) {
            subscribing.insert_or_assign(messageId, change.filter);
            receivesQos2 = receivesQos2 || *change.qos == 2;
        }
    }
}

void Connection::watchTime(BrokerLink &link)
{
    const TimePoint time = now();
    if (phase == Phase::CONNECTING && time >= deadline) {
        fail(link, "no answer from the broker");
    }
    if (phase != Phase::CONNECTED) {
        return;
    }
    if (!reading) {
        keepalive.heldBack(time);
    } else if (!moreToRead) {
        keepalive.caughtUp(time);
    }
    const KeepaliveWatch::Action action = keepalive.due(time);
    if (action == KeepaliveWatch::Action::NOTHING) {
        return;
    }
    errno = 0;
    const bool substitute = action == KeepaliveWatch::Action::SUBSTITUTE;
    const int code = substitute ? link.unsubscribe(KEEPALIVE_FILTER) : link.keepAlive();
    if (code != MOSQ_ERR_SUCCESS || link.fd() < 0) {
        fail(link, link.reason(MOSQ_ERR_KEEPALIVE));
        return;
    }
    if (!link.wantsWrite()) {
        keepalive.postpone(time);
        return;
    }
    if (substitute) {
        keepalive.wrote(time);
    } else {
        keepalive.pinged(time);
    }
    if (check(link, link.write())) {
        // Not when the loop comes round: then a keepalive time may have passed, and would count
        // anew.
        noteWrites(link);
    }
}

void Connection::fail(BrokerLink &link, const std::string &reason)
{
    if (phase == Phase::CONNECTED) {
        log.disconnected(reason);
        parts.status->announce({.active = true, .connected = false});
        if (now() - connectedSince >= STABLE_TIME) {
            backOff.reset();
        }
    } else {
        log.attemptFailed(reason);
    }
    link.abandon();
    delivery.connectionLost();
    const bool atOnce = chooseAddresses();
    phase = Phase::WAITING;
    deadline = atOnce ? now() : now() + backOff.next();
}

bool Connection::chooseAddresses()
{
    if (phase == Phase::CONNECTED || !refusal.empty()) {
        return false; // the broker is there, or was
    }
    if (addresses == Addresses::IPV4) {
        addresses = Addresses::IPV6;
        return false;
    }
    if (addresses == Addresses::IPV6 || overIpv6) {
        addresses = Addresses::IPV4;
        return true;
    }
    return false;
}

void Connection::leave(BrokerLink &link)
{
    if (phase == Phase::CONNECTED && link.disconnect() == MOSQ_ERR_SUCCESS) {
        const TimePoint end = now() + LEAVE_TIME;
        while (link.write() == MOSQ_ERR_SUCCESS && link.fd() >= 0 && link.wantsWrite() &&
               now() < end) {
            pollfd socket{link.fd(), POLLOUT, 0};
            poll(&socket, 1, static_cast<int>((end - now()).count()));
        }
    }
    link.abandon();
}

} // namespace norq::mqtt
