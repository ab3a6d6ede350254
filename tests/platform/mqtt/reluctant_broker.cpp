#include "platform/mqtt/reluctant_broker.h"

#include "platform/mqtt/broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace mqtt_test {
namespace {

constexpr unsigned char CONNECT = 0x10;
constexpr unsigned char PUBLISH = 0x30;
const std::string ACCEPTED{0x20, 0x02, 0x00, 0x00};
const std::string CONFIRMED{0x40, 0x02};

void sendAll(int descriptor, const std::string &bytes)
{
    if (send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the client has gone");
    }
}

} // namespace

ReluctantBroker::ReluctantBroker()
    : listenPort(freePort()), listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
}

ReluctantBroker::~ReluctantBroker()
{
    shutdown(listener, SHUT_RDWR);
    if (client >= 0) {
        shutdown(client, SHUT_RDWR);
    }
    if (thread.joinable()) {
        thread.join();
    }
    close(listener);
    if (client >= 0) {
        close(client);
    }
}

void ReluctantBroker::start()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(listenPort));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
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
        sendAll(client, CONFIRMED + messageIds.at(confirmed++));
    }
}

void ReluctantBroker::serve()
{
    client = accept(listener, nullptr, nullptr);
    while (client >= 0 && servePacket()) {
    }
}

bool ReluctantBroker::servePacket()
{
    std::string header;
    std::string body;
    if (!read(header, 2) || !read(body, static_cast<unsigned char>(header[1]))) {
        return false;
    }
    const unsigned int kind = static_cast<unsigned char>(header[0]) & 0xF0U;
    if (kind == CONNECT) {
        sendAll(client, ACCEPTED);
    } else if (kind == PUBLISH) {
        const std::size_t topicLength = static_cast<unsigned char>(body.at(1));
        const std::lock_guard guard(mutex);
        messageIds.push_back(body.substr(2 + topicLength, 2));
    }
    return true;
}

bool ReluctantBroker::read(std::string &bytes, std::size_t count) const
{
    bytes.resize(count);
    return recv(client, bytes.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

} // namespace mqtt_test
