/** A broker that takes messages of QoS 1 and confirms them only when it is told to. */
#pragma once

#include "posix/file_descriptor.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace mqtt_test {

/**
 * Serves one connection after the other, each until its other side or the test ends it. Knows no
 * session, and answers nothing but CONNECT; packets must be short.
 */
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
    /**
     * What was received so far: for each packet the letter C (CONNECT), P (PUBLISH), S (SUBSCRIBE),
     * D (DISCONNECT) or ? (another), with a slash between connections.
     */
    [[nodiscard]] std::string packets() const;
    /** Whether a client has connected that is not served yet. */
    [[nodiscard]] bool someoneWaits() const;
    /** Ends the present connection. */
    void drop();

private:
    void serve();
    bool begin(int accepted);
    bool servePacket(int descriptor);
    void answer(int descriptor, unsigned int kind, const std::string &body);
    void end();

    const int listenPort;
    const norq::FileDescriptor listener;
    mutable std::mutex mutex; // guards all below but confirmed
    bool ending = false;
    norq::FileDescriptor client;
    std::string log;
    std::vector<std::string> messageIds;
    std::size_t confirmed = 0; // of the test's thread
    std::thread thread;
};

} // namespace mqtt_test
