/** libmosquitto's client object: the only place that calls into it. */
#pragma once

#include "mqtt/outbound_queue.h"
#include "posix/file_descriptor.h"
#include "settings/mqtt_settings.h"

#include <memory>
#include <string>

struct mosquitto;
struct mosquitto_message;

namespace norq::mqtt {

/** What comes from the broker; called inside BrokerLink::read() and write() only. */
class BrokerListener {
public:
    BrokerListener() = default;
    BrokerListener(const BrokerListener &) = delete;
    BrokerListener &operator=(const BrokerListener &) = delete;
    virtual ~BrokerListener() = default;

    /**
     * The broker's answer to the connection: 0 accepted, else its reason.
     *
     * @return false to take leave at once, before anything that was left of a former connection
     */
    virtual bool onConnect(int code, bool sessionPresent) = 0;
    /** A message is finished: written (QoS 0) or confirmed (QoS 1 and 2). */
    virtual void onPublished(int messageId) = 0;
    /** The broker's answer to a subscription: the QoS granted, 128 for a refusal. */
    virtual void onSubscribed(int messageId, int grantedQos) = 0;
    /** A message; its texts are valid during the call. */
    virtual void onMessage(const mosquitto_message &message) = 0;
};

/** Which of the broker's addresses are tried. */
enum class Addresses { ALL, IPV4, IPV6 };

/**
 * One client of libmosquitto, never shared: created, used and destroyed on one thread. Results are
 * libmosquitto's codes. Nothing is written to the socket but by write(), so callbacks never nest.
 */
class BrokerLink {
public:
    /** Most messages of QoS 1 and 2 that are sent and not yet confirmed. */
    static constexpr int MAX_IN_FLIGHT = 200;

    /** Throws std::runtime_error when libmosquitto refuses the settings or memory is exhausted. */
    BrokerLink(const MqttSettings &configured, std::string clientId, BrokerListener &target);
    ~BrokerLink();
    BrokerLink(const BrokerLink &) = delete;
    BrokerLink &operator=(const BrokerLink &) = delete;

    /**
     * Forgets all messages of former connections. libmosquitto keeps those of QoS 2 that the broker
     * has not released; in a session in which the broker counts them anew, one of these would be
     * taken for another. Only while there is no connection, or to give it up.
     */
    void startAnew();
    /**
     * Starts connecting, also after a loss. May block for the lookup of the broker's name.
     *
     * libmosquitto tries the first address that does not fail at once, and no other.
     *
     * @param addresses after IPV4 or IPV6, ALL counts as the same: libmosquitto cannot take it back
     */
    int connect(Addresses addresses);
    /** The connection is established: reasons for a failure to connect are of no use any more. */
    void connected();
    /** Gives the connection up without a word to the broker. */
    void abandon() const;
    /** Takes leave of the broker; has to be written. */
    int disconnect();
    /** The connection once more, to see how it ends after libmosquitto has closed it; without a
     * file when there is none or the process has no more descriptors. */
    [[nodiscard]] FileDescriptor duplicate() const;

    /** Descriptor to poll, -1 when there is no connection. */
    [[nodiscard]] int fd() const;
    /** Whether the connection, or the attempt at one, goes to an IPv6 address. */
    [[nodiscard]] bool isOverIpv6() const;
    [[nodiscard]] bool wantsWrite() const;
    /** Whether the connection has ended and nothing is left to be read. If so sets errno, 0 for an
     * unknown reason. */
    [[nodiscard]] bool hasEnded() const;
    /**
     * Reads about one packet. `exhausted`: the socket may have nothing more to read now; certain
     * only if nothing waits to be written afterwards, as a queued answer looks the same.
     */
    int read(bool &exhausted);
    /** Writes what the socket takes. */
    int write();
    /**
     * From holdBack() to release() the kernel may collect what is written, to send it as few
     * packets. libmosquitto writes each message on its own, and most of what a small message costs
     * is its way through the network stack. A single message is sent at once.
     *
     * If something was read meanwhile and nothing written, release() has the kernel acknowledge it
     * at once: a broker that leaves Nagle's algorithm on, as the usual one does, holds its next
     * answer back until then.
     */
    void holdBack() { holdingBack = true; }
    void release();
    /** Number of calls of write() so far. */
    [[nodiscard]] unsigned long writes() const { return writeCount; }
    /** Sends a keepalive ping when it is due, and finds out that the last one was not answered. */
    int keepAlive();

    int publish(int &messageId, const OutboundMessage &message);
    int subscribe(int &messageId, const std::string &filter, int qos);
    int unsubscribe(const std::string &filter);

    /** Why a call failed, for people. Reads errno. */
    [[nodiscard]] std::string reason(int code) const;

private:
    using Client = std::unique_ptr<mosquitto, void (*)(mosquitto *)>;
    struct Callbacks;

    void create();
    void setCallbacks();
    int prepareTls();
    void cork(bool on);
    void setTcpOption(int option, int value) const;

    const MqttSettings &settings;
    const std::string id;
    BrokerListener &listener;
    std::string libraryError; // what libmosquitto said last while connecting
    bool tlsReady = false;
    unsigned long writeCount = 0;
    bool holdingBack = false;
    bool corked = false;
    bool unacknowledged = false;
    unsigned int queued = 0;         // messages that the next write() writes
    unsigned int writesHeldBack = 0; // calls of write() since holdBack()
    Client client;
};

} // namespace norq::mqtt
