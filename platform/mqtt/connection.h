/** The connection to the broker and the I/O thread that drives it. */
#pragma once

#include "mqtt/back_off.h"
#include "mqtt/broker_link.h"
#include "mqtt/connection_log.h"
#include "mqtt/delivery.h"
#include "mqtt/inbound_queue.h"
#include "mqtt/keepalive_watch.h"
#include "mqtt/outbound_queue.h"
#include "mqtt/status_announcer.h"
#include "mqtt/subscription_table.h"
#include "mqtt/wake_fd.h"
#include "posix/file_descriptor.h"
#include "settings/mqtt_settings.h"

#include <poll.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace norq::mqtt {

/** What a handle and its I/O thread share. Each part has its own lock. */
struct SharedParts {
    MqttSettings settings;
    std::string clientId;
    std::shared_ptr<WakeFd> wake;
    std::shared_ptr<OutboundQueue> outbound;
    std::shared_ptr<InboundQueue> inbound;
    std::shared_ptr<SubscriptionTable> subscriptions;
    std::shared_ptr<StatusAnnouncer> status;
};

/**
 * Connects, reads, writes and connects again, on one thread that sleeps in poll() until the
 * socket, the wake-up descriptor or a deadline calls.
 */
class Connection : public std::enable_shared_from_this<Connection>, private BrokerListener {
public:
    explicit Connection(SharedParts shared);

    /** Starts the thread; once. */
    void start();
    /**
     * Ends the thread. It takes leave of the broker within LEAVE_TIME. Only a lookup of the
     * broker's name cannot be interrupted: after STOP_TIME the thread is left to itself, which
     * ends it after the lookup; it touches nothing but this object and the shared parts.
     */
    void stop();

    static constexpr std::chrono::milliseconds STOP_TIME{1'000};
    static constexpr std::chrono::milliseconds LEAVE_TIME{100};
    /** Longest time until the broker accepts a connection; the keepalive if that is shorter. */
    static constexpr std::chrono::seconds CONNECT_TIME{20};
    /** Longest time until a broker that was taken leave of closes the connection. */
    static constexpr std::chrono::seconds PARTING_TIME{5};
    /** A connection that lasted this long lets the back-off begin anew. */
    static constexpr std::chrono::seconds STABLE_TIME{10};

private:
    using TimePoint = std::chrono::milliseconds; // of a clock that counts suspended time too
    enum class Phase { WAITING, CONNECTING, CONNECTED };

    bool onConnect(int code, bool sessionPresent) override;
    void onPublished(int messageId) override;
    void onSubscribed(int messageId, int grantedQos) override;
    void onMessage(const mosquitto_message &message) override;

    void run() noexcept;
    void loop(BrokerLink &link);
    void wait(BrokerLink &link);
    /** What to poll the connection for. */
    [[nodiscard]] pollfd awaited(const BrokerLink &link) const;
    [[nodiscard]] int pollTimeout(BrokerLink &link) const;
    void beginAttempt(BrokerLink &link);
    void serveSocket(BrokerLink &link, short events);
    void readAll(BrokerLink &link);
    void serveConnection(BrokerLink &link);
    void sendSubscriptions(BrokerLink &link);
    void watchTime(BrokerLink &link);
    void becomeConnected(BrokerLink &link);
    /** Whether the broker has lost the session that was to persist, and messages of it with QoS 2
     * may be left here, whose numbers it will count anew. */
    [[nodiscard]] bool sessionIsLost() const;
    /** Gives the session up that the broker has begun in the place of a lost one. */
    void beginAnew(BrokerLink &link);
    /** Has nothing of former connections left, neither in libmosquitto nor in what is awaited. */
    void startAnew(BrokerLink &link);
    /**
     * Tells that the client is connected once it can take new messages: those who waited for it
     * have as much to publish as they could keep, and would see it refused behind a backlog.
     */
    void announceWhenRoomy();
    void noteWrites(BrokerLink &link);
    /** Takes note of a result; on a failure the connection is given up. True on success. */
    bool check(BrokerLink &link, int code);
    [[nodiscard]] std::string reasonOf(const BrokerLink &link, int code) const;
    void fail(BrokerLink &link, const std::string &reason);
    /** Chooses the addresses of the next attempt; true to make it at once. */
    bool chooseAddresses();
    void leave(BrokerLink &link);
    static TimePoint now();

    const SharedParts parts;
    std::thread thread;
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> lookingUp{false}; // inside the one call that may take long
    std::mutex endMutex;                // guards ended
    std::condition_variable endChanged;
    bool ended = false;

    // I/O thread only, once it runs.
    ConnectionLog log;
    Delivery delivery;
    KeepaliveWatch keepalive;
    BackOff backOff;
    std::unordered_map<int, std::string> subscribing;
    Phase phase = Phase::WAITING;
    TimePoint deadline{}; // of the next attempt, or of the present one
    TimePoint connectedSince{};
    FileDescriptor parting; // of the connection whose end is waited for before the next attempt
    unsigned long writesSeen = 0;
    std::string refusal;
    bool accepted = false;
    bool announced = false; // that this connection is there
    bool brokerHasSession = false;
    bool receivesQos2 = false; // since the link began anew
    bool reading = true;
    bool moreToRead = false;
    bool overIpv6 = false; // the present attempt
    Addresses addresses = Addresses::ALL;
};

} // namespace norq::mqtt
