/** One handle of the library: checks what its callers ask for and passes it on. */
#pragma once

#include "mqtt/client_id.h"
#include "mqtt/connection.h"
#include "mqtt/topic_rules.h"

#include <norq/mqtt_messaging.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>

namespace norq::mqtt {

/** Any thread, but for the construction and the destruction. Nothing waits for the network. */
class Client {
public:
    Client(MQTTMsg_message_callback callback, void *userData);
    /** Ends everything; no callback runs afterwards. */
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    Verdict init(int flags);
    Verdict publish(std::string_view topic, bool usePrefix, std::string_view payload, int qos,
                    bool retain);
    Verdict subscribe(std::string_view filter, int qos, bool usePrefix);
    Verdict unsubscribe(std::string_view filter, bool usePrefix);

private:
    enum class State { NEW, INACTIVE, RUNNING };

    [[nodiscard]] Verdict checkRunning() const;
    void start(const MqttSettings &settings);

    const InboundQueue::Receiver receiver;
    std::mutex initMutex; // one init at a time; what it sets is constant afterwards
    std::atomic<State> state{State::NEW};
    std::string prefix;
    ClientIdLease clientId;
    SharedParts parts;
    std::shared_ptr<Connection> connection;
};

} // namespace norq::mqtt
