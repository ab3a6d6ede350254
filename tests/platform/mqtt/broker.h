/** A real broker of a test's own, and peers that talk to it. */
#pragma once

#include "support/child_process.h"
#include "support/temp_directory.h"

#include <memory>
#include <string>
#include <vector>

namespace mqtt_test {

/** A TCP port of the loopback that nobody listens on at the moment. */
int freePort();
/** Whether something accepts connections there. */
bool isListening(int port);

/** A mosquitto on a free loopback port with a private configuration. */
class Broker {
public:
    /**
     * @param lines configuration on top of the listener; the first "FOLDER" in a line is replaced
     *              by the broker's own folder
     */
    explicit Broker(const std::vector<std::string> &lines = {"allow_anonymous true"},
                    bool started = true);

    /** Starts it at the same port, and waits until it listens. */
    void start();
    /** Ends it as a crash would. */
    void kill();
    /** Ends it in an orderly way, so that it saves what it keeps. */
    void terminate();
    /** It keeps its connections but does nothing any more; resume() lets it go on. */
    void freeze();
    void resume();

    [[nodiscard]] int port() const { return listenPort; }
    [[nodiscard]] const test_support::TempDirectory &folder() const { return directory; }
    /** What it has logged since it was last started. */
    [[nodiscard]] std::string log() const;

    /** Publishes with mosquitto_pub and waits for its end; `arguments` besides host and port. */
    void publish(const std::vector<std::string> &arguments);

private:
    test_support::TempDirectory directory;
    int listenPort;
    std::unique_ptr<test_support::ChildProcess> process;
};

/** A mosquitto_sub that prints "topic qos retained payload" for each message. */
class Subscriber {
public:
    /** Subscribes and waits until the broker has confirmed it. */
    Subscriber(const Broker &broker, const std::string &filter,
               const std::vector<std::string> &arguments = {});

    /** The lines so far. */
    [[nodiscard]] std::vector<std::string> messages() const;
    [[nodiscard]] std::size_t count() const;

private:
    test_support::ChildProcess process;
};

/** A server that accepts every connection and never says anything. */
class MuteServer {
public:
    MuteServer();
    ~MuteServer();
    MuteServer(const MuteServer &) = delete;
    MuteServer &operator=(const MuteServer &) = delete;

    [[nodiscard]] int port() const { return listenPort; }
    /** Takes the next connection and, once the client has said something, resets it. */
    void resetNext() const;

private:
    int listenPort = 0; // set while the descriptor is made
    int descriptor;
};

} // namespace mqtt_test
