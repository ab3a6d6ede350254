#include "platform/mqtt/broker.h"

#include "support/wait_until.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace mqtt_test {
namespace {

using test_support::ChildProcess;
using test_support::DEADLINE;
using test_support::waitUntil;

constexpr std::string_view FOLDER_MARK = "FOLDER";
constexpr const char *MESSAGE_MARK = "message ";

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/** Binds a new socket to a free port of the loopback. */
int boundSocket(int &port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (descriptor < 0 || bind(descriptor, generic, size) != 0 ||
        getsockname(descriptor, generic, &size) != 0) {
        throw std::runtime_error("no free port");
    }
    port = ntohs(address.sin_port);
    return descriptor;
}

std::vector<std::string> subscriberCommand(const Broker &broker, const std::string &filter,
                                           const std::vector<std::string> &arguments)
{
    // Line by line: otherwise the tool keeps what it writes to a file until it ends.
    std::vector<std::string> command{"/usr/bin/stdbuf",
                                     "-oL",
                                     "/usr/bin/mosquitto_sub",
                                     "-p",
                                     std::to_string(broker.port()),
                                     "-t",
                                     filter,
                                     "-d",
                                     "-F",
                                     std::string(MESSAGE_MARK) + "%t %q %r %p"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

} // namespace

int freePort()
{
    int port = 0;
    close(boundSocket(port));
    return port;
}

bool isListening(int port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const int result =
        connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    close(descriptor);
    return result == 0;
}

Broker::Broker(const std::vector<std::string> &lines, bool started) : listenPort(freePort())
{
    std::ofstream file(directory.file("broker.conf"));
    file << "listener " << listenPort << " 127.0.0.1\nuser root\n";
    for (const std::string &line : lines) {
        const std::size_t mark = line.find(FOLDER_MARK);
        file << (mark == std::string::npos ? line
                                           : line.substr(0, mark) + directory.path() +
                                                 line.substr(mark + FOLDER_MARK.size()))
             << "\n";
    }
    file.close();
    if (started) {
        start();
    }
}

void Broker::start()
{
    process = std::make_unique<ChildProcess>(
        std::vector<std::string>{"/usr/sbin/mosquitto", "-v", "-c", directory.file("broker.conf")});
    const auto ready = [this] { return isListening(listenPort) || !process->isRunning(); };
    if (!waitUntil(ready) || !process->isRunning()) {
        throw std::runtime_error("the broker did not start: " + log());
    }
}

void Broker::kill()
{
    process->kill();
}

void Broker::terminate()
{
    process->signal(SIGTERM);
    process->waitForExit(DEADLINE);
}

void Broker::freeze()
{
    process->signal(SIGSTOP);
}

void Broker::resume()
{
    process->signal(SIGCONT);
}

std::string Broker::log() const
{
    return process->standardError() + process->standardOutput();
}

void Broker::publish(const std::vector<std::string> &arguments)
{
    std::vector<std::string> command{"/usr/bin/mosquitto_pub", "-p", std::to_string(listenPort)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess publisher(command);
    if (publisher.waitForExit(DEADLINE) != 0) {
        throw std::runtime_error("mosquitto_pub failed: " + publisher.standardError());
    }
}

Subscriber::Subscriber(const Broker &broker, const std::string &filter,
                       const std::vector<std::string> &arguments)
    : process(subscriberCommand(broker, filter, arguments))
{
    const auto subscribed = [this] {
        return process.standardOutput().find("Subscribed (mid") != std::string::npos;
    };
    if (!waitUntil(subscribed)) {
        throw std::runtime_error("mosquitto_sub did not subscribe: " + process.standardError());
    }
}

std::vector<std::string> Subscriber::messages() const
{
    std::vector<std::string> result;
    std::istringstream lines(process.standardOutput());
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(MESSAGE_MARK)) {
            result.push_back(line.substr(std::string(MESSAGE_MARK).size()));
        }
    }
    return result;
}

std::size_t Subscriber::count() const
{
    return messages().size();
}

MuteServer::MuteServer() : descriptor(boundSocket(listenPort))
{
    listen(descriptor, 16);
}

MuteServer::~MuteServer()
{
    close(descriptor);
}

void MuteServer::resetNext() const
{
    const int connection = accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    char byte = 0;
    recv(connection, &byte, sizeof byte, 0);
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close(connection);
}

} // namespace mqtt_test
