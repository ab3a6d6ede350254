#include "platform/mqtt/reluctant_broker.h"

#include "platform/mqtt/broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <stdexcept>

namespace mqtt_test {
namespace {

constexpr unsigned int CONNECT = 0x10;
constexpr unsigned int PUBLISH = 0x30;
constexpr unsigned int SUBSCRIBE = 0x80;
constexpr unsigned int DISCONNECT = 0xE0;
const std::string ACCEPTED{0x20, 0x02, 0x00, 0x00};
const std::string CONFIRMED{0x40, 0x02};

void sendAll(int descriptor, const std::string &bytes)
{
    if (send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the client has gone");
    }
}

bool receive(int descriptor, std::string &bytes, std::size_t count)
{
    bytes.resize(count);
    // Asked for nothing, recv() would wait for something.
    return count == 0 ||
           recv(descriptor, bytes.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

char letterOf(unsigned int kind)
{
    switch (kind) {
    case CONNECT:
        return 'C';
    case PUBLISH:
        return 'P';
    case SUBSCRIBE:
        return 'S';
    case DISCONNECT:
        return 'D';
    default:
        return '?';
    }
}

} // namespace

ReluctantBroker::ReluctantBroker()
    : listenPort(freePort()), listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
}

ReluctantBroker::~ReluctantBroker()
{
    end();
    if (thread.joinable()) {
        thread.join();
    }
}

void ReluctantBroker::end()
{
    shutdown(listener.get(), SHUT_RDWR);
    const std::lock_guard guard(mutex);
    ending = true;
    shutdown(client.get(), SHUT_RDWR);
}

void ReluctantBroker::start()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(listenPort));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), 1) != 0) {
        throw std::runtime_error("the port was taken by somebody else");
    }
    thread = std::thread([this] { serve(); });
}

std::size_t ReluctantBroker::received() const
{
    const std::lock_guard guard(mutex);
    return messageIds.size();
}

void ReluctantBroker::confirm(std::size_t count)
{
    const std::lock_guard guard(mutex);
    for (; count > 0; --count) {
        sendAll(client.get(), CONFIRMED + messageIds.at(confirmed++));
    }
}

std::string ReluctantBroker::packets() const
{
    const std::lock_guard guard(mutex);
    return log;
}

bool ReluctantBroker::someoneWaits() const
{
    pollfd waiting{listener.get(), POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

void ReluctantBroker::drop()
{
    const std::lock_guard guard(mutex);
    shutdown(client.get(), SHUT_RDWR);
}

void ReluctantBroker::serve()
{
    for (int accepted = 0; (accepted = accept(listener.get(), nullptr, nullptr)) >= 0;) {
        if (!begin(accepted)) {
            return;
        }
        while (servePacket(accepted)) {
        }
    }
}

bool ReluctantBroker::begin(int accepted)
{
    const std::lock_guard guard(mutex);
    client = norq::FileDescriptor(accepted);
    log += log.empty() ? "" : "/";
    return !ending;
}

bool ReluctantBroker::servePacket(int descriptor)
{
    std::string header;
    std::string body;
    if (!receive(descriptor, header, 2) ||
        !receive(descriptor, body, static_cast<unsigned char>(header[1]))) {
        return false;
    }
    answer(descriptor, static_cast<unsigned char>(header[0]) & 0xF0U, body);
    return true;
}

void ReluctantBroker::answer(int descriptor, unsigned int kind, const std::string &body)
{
    const std::lock_guard guard(mutex);
    log += letterOf(kind);
    if (kind == CONNECT) {
        sendAll(descriptor, ACCEPTED);
    } else if (kind == PUBLISH) {
        const std::size_t topicLength = static_cast<unsigned char>(body.at(1));
        messageIds.push_back(body.substr(2 + topicLength, 2));
    }
}

} // namespace mqtt_test
