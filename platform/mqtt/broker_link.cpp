#include "mqtt/broker_link.h"

#include <fcntl.h>
#include <glib.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace norq::mqtt {
namespace {

/** libmosquitto counts its users without a lock; it stays initialised for the process. */
void initialiseLibrary()
{
    static std::once_flag once;
    std::call_once(once, mosquitto_lib_init);
}

void require(int code, const char *what)
{
    if (code != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(code));
    }
}

/** An end of the connection that leaves the other one no choice of the family. */
const char *anyAddressOf(Addresses addresses)
{
    switch (addresses) {
    case Addresses::IPV4:
        return "0.0.0.0";
    case Addresses::IPV6:
        return "::";
    case Addresses::ALL:
        break;
    }
    return nullptr;
}

} // namespace

/** Callbacks as C sees them: nothing is thrown through libmosquitto, and errno is left alone. */
struct BrokerLink::Callbacks {
    template <typename Action>
    static void guarded(void *self, Action action) noexcept
    {
        const int savedErrno = errno;
        try {
            action(*static_cast<BrokerLink *>(self));
        } catch (const std::exception &error) {
            g_warning("MQTT: %s", error.what());
        }
        errno = savedErrno;
    }

    static void connected(mosquitto * /*client*/, void *self, int code, int flags)
    {
        guarded(self, [&](BrokerLink &link) {
            if (!link.listener.onConnect(code, (flags & 1) != 0)) {
                link.disconnect();
            }
        });
    }
    static void published(mosquitto * /*client*/, void *self, int messageId)
    {
        guarded(self, [&](BrokerLink &link) { link.listener.onPublished(messageId); });
    }
    static void subscribed(mosquitto * /*client*/, void *self, int messageId, int count,
                           const int *granted)
    {
        guarded(self, [&](BrokerLink &link) {
            link.listener.onSubscribed(messageId, count > 0 ? granted[0] : 0);
        });
    }
    static void received(mosquitto * /*client*/, void *self, const mosquitto_message *message)
    {
        guarded(self, [&](BrokerLink &link) { link.listener.onMessage(*message); });
    }
    static void logged(mosquitto * /*client*/, void *self, int level, const char *text)
    {
        guarded(self, [&](BrokerLink &link) {
            if (level == MOSQ_LOG_ERR) {
                link.libraryError = text;
            }
        });
    }
};

BrokerLink::BrokerLink(const MqttSettings &configured, std::string clientId, BrokerListener &target)
    : settings(configured),
      id(std::move(clientId)),
      listener(target),
      client(nullptr, mosquitto_destroy)
{
    initialiseLibrary();
    create();
}

void BrokerLink::create()
{
    client.reset(mosquitto_new(id.c_str(), settings.cleanSession, this));
    if (!client) {
        throw std::runtime_error(std::string("mosquitto_new: ") + g_strerror(errno));
    }
    // Told that threads are managed from outside, libmosquitto leaves all writing to write().
    require(mosquitto_threaded_set(client.get(), true), "mosquitto_threaded_set");
    require(mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1), "TCP_NODELAY");
    require(mosquitto_int_option(client.get(), MOSQ_OPT_SEND_MAXIMUM, MAX_IN_FLIGHT),
            "in-flight window");
    if (!settings.user.empty()) {
        require(mosquitto_username_pw_set(client.get(), settings.user.c_str(),
                                          settings.password.empty() ? nullptr
                                                                    : settings.password.c_str()),
                "user");
    }
    if (settings.will) {
        const MqttWillSettings &will = *settings.will;
        require(mosquitto_will_set(client.get(), will.topic.c_str(),
                                   static_cast<int>(will.payload.size()), will.payload.data(),
                                   std::min(will.qos, settings.maximumQos), will.retain),
                "last will");
    }
    setCallbacks();
}

BrokerLink::~BrokerLink() = default;

void BrokerLink::startAnew()
{
    tlsReady = false;
    corked = false;
    unacknowledged = false;
    queued = 0;
    create();
}

void BrokerLink::setCallbacks()
{
    mosquitto_connect_with_flags_callback_set(client.get(), Callbacks::connected);
    mosquitto_publish_callback_set(client.get(), Callbacks::published);
    mosquitto_subscribe_callback_set(client.get(), Callbacks::subscribed);
    mosquitto_message_callback_set(client.get(), Callbacks::received);
}

int BrokerLink::prepareTls()
{
    if (!settings.tls.enabled || tlsReady) {
        return MOSQ_ERR_SUCCESS;
    }
    const MqttTlsSettings &tls = settings.tls;
    const auto orNull = [](const std::string &text) {
        return text.empty() ? nullptr : text.c_str();
    };
    int code = MOSQ_ERR_SUCCESS;
    if (tls.caFile.empty()) {
        code = mosquitto_int_option(client.get(), MOSQ_OPT_TLS_USE_OS_CERTS, 1);
    }
    if (code == MOSQ_ERR_SUCCESS && (!tls.caFile.empty() || !tls.certificateFile.empty())) {
        code = mosquitto_tls_set(client.get(), orNull(tls.caFile),
                                 tls.caFile.empty() ? "/etc/ssl/certs" : nullptr,
                                 orNull(tls.certificateFile), orNull(tls.keyFile), nullptr);
    }
    if (code == MOSQ_ERR_SUCCESS) {
        constexpr int VERIFY_PEER = 1;
        code =
            mosquitto_tls_opts_set(client.get(), VERIFY_PEER, tls.minimumVersion.c_str(), nullptr);
    }
    tlsReady = code == MOSQ_ERR_SUCCESS;
    if (!tlsReady) {
        libraryError = "the TLS files of the settings cannot be used";
    }
    return code;
}

int BrokerLink::connect(Addresses addresses)
{
    libraryError.clear();
    if (const int code = prepareTls(); code != MOSQ_ERR_SUCCESS) {
        return code;
    }
    mosquitto_log_callback_set(client.get(), Callbacks::logged);
    const int code =
        mosquitto_connect_bind_async(client.get(), settings.host.c_str(), settings.port,
                                     settings.keepalive, anyAddressOf(addresses));
    return code == MOSQ_ERR_CONN_PENDING ? MOSQ_ERR_SUCCESS : code;
}

void BrokerLink::connected()
{
    // With a log callback libmosquitto composes a text for every packet.
    mosquitto_log_callback_set(client.get(), nullptr);
    libraryError.clear();
}

void BrokerLink::abandon() const
{
    if (fd() >= 0) {
        shutdown(fd(), SHUT_RDWR);
    }
}

int BrokerLink::disconnect()
{
    return mosquitto_disconnect(client.get());
}

FileDescriptor BrokerLink::duplicate() const
{
    return FileDescriptor(fd() < 0 ? -1 : fcntl(fd(), F_DUPFD_CLOEXEC, 0));
}

int BrokerLink::fd() const
{
    return mosquitto_socket(client.get());
}

bool BrokerLink::isOverIpv6() const
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    return getsockname(fd(), reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
           address.ss_family == AF_INET6;
}

bool BrokerLink::wantsWrite() const
{
    return mosquitto_want_write(client.get());
}

bool BrokerLink::hasEnded() const
{
    char byte = 0;
    errno = 0;
    if (recv(fd(), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) > 0) {
        return false;
    }
    if (errno == ENOTCONN) {
        errno = 0; // who has asked before was told the reason
    }
    return errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR;
}

int BrokerLink::read(bool &exhausted)
{
    unacknowledged = true;
    errno = 0;
    const int code = mosquitto_loop_read(client.get(), 1);
    // libmosquitto also writes to a pair of sockets that nobody empties here, which ends in the
    // same error.
    exhausted = errno == EAGAIN || errno == EWOULDBLOCK;
    return code;
}

int BrokerLink::write()
{
    ++writeCount;
    ++writesHeldBack;
    if (holdingBack && !corked && (queued > 1 || writesHeldBack > 1)) {
        cork(true);
    }
    queued = 0;
    unacknowledged = false; // by TCP, with what is written
    errno = 0;
    return mosquitto_loop_write(client.get(), 1);
}

void BrokerLink::release()
{
    const int savedErrno = errno;
    holdingBack = false;
    writesHeldBack = 0;
    if (corked) {
        cork(false);
    }
    if (unacknowledged) {
        setTcpOption(TCP_QUICKACK, 1);
        unacknowledged = false;
    }
    errno = savedErrno;
}

void BrokerLink::cork(bool on)
{
    setTcpOption(TCP_CORK, on ? 1 : 0);
    corked = on;
}

/** Best effort: everything works without these options, only slower. */
void BrokerLink::setTcpOption(int option, int value) const
{
    setsockopt(fd(), IPPROTO_TCP, option, &value, sizeof value);
}

int BrokerLink::keepAlive()
{
    return mosquitto_loop_misc(client.get());
}

int BrokerLink::publish(int &messageId, const OutboundMessage &message)
{
    ++queued;
    return mosquitto_publish(client.get(), &messageId, message.topic.c_str(),
                             static_cast<int>(message.payload.size()), message.payload.data(),
                             message.qos, message.retain);
}

int BrokerLink::subscribe(int &messageId, const std::string &filter, int qos)
{
    return mosquitto_subscribe(client.get(), &messageId, filter.c_str(), qos);
}

int BrokerLink::unsubscribe(const std::string &filter)
{
    return mosquitto_unsubscribe(client.get(), nullptr, filter.c_str());
}

std::string BrokerLink::reason(int code) const
{
    std::string text;
    switch (code) {
    case MOSQ_ERR_ERRNO:
        text = errno != 0 ? g_strerror(errno) : "the connection failed";
        break;
    case MOSQ_ERR_KEEPALIVE:
        text = "the broker did not answer within the keepalive time";
        break;
    case MOSQ_ERR_CONN_LOST:
        text = "the connection was closed";
        break;
    case MOSQ_ERR_EAI:
        text = "the name of the broker cannot be looked up";
        break;
    default:
        text = mosquitto_strerror(code);
    }
    return libraryError.empty() ? text : text + " (" + libraryError + ")";
}

} // namespace norq::mqtt
