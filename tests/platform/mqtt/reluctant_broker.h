/** A broker that takes messages of QoS 1 and confirms them only when it is told to. */
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace mqtt_test {

/** Serves one client, once. Understands CONNECT and short PUBLISH packets. */
class ReluctantBroker {
public:
    ReluctantBroker();
    ~ReluctantBroker();
    ReluctantBroker(const ReluctantBroker &) = delete;
    ReluctantBroker &operator=(const ReluctantBroker &) = delete;

    /** Where it listens once it is started. */
    [[nodiscard]] int port() const { return listenPort; }
    void start();
    /** Number of messages received so far. */
    [[nodiscard]] std::size_t received() const;
    /** Confirms the oldest `count` messages that are not confirmed yet. */
    void confirm(std::size_t count);

private:
    void serve();
    bool servePacket();
    bool read(std::string &bytes, std::size_t count) const;

    const int listenPort;
    int listener;
    std::atomic<int> client{-1};
    mutable std::mutex mutex; // guards messageIds
    std::vector<std::string> messageIds;
    std::size_t confirmed = 0; // of the test's thread
    std::thread thread;
};

} // namespace mqtt_test
