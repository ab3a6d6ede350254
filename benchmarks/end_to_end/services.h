/** The service and the broker under measurement; the sandbox provides the rest. */
#pragma once

#include "support/child_process.h"

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

namespace end_to_end {

/**
 * A broker that drops nothing, and the service with one event filter for each QoS, connected to it.
 * To be made inside scripts/sandbox --no-service, whose event service is used.
 */
class Services {
public:
    /**
     * Returns when the first event of each filter has reached the broker.
     *
     * @param keepalive of the service's MQTT connection
     */
    explicit Services(std::chrono::seconds keepalive = std::chrono::seconds(60));

    [[nodiscard]] int port() const { return brokerPort; }
    [[nodiscard]] pid_t broker() const { return brokerProcess->pid(); }
    [[nodiscard]] pid_t service() const { return serviceProcess->pid(); }
    [[nodiscard]] pid_t eventService() const { return eventServiceId; }

private:
    void startBroker();
    void startService(std::chrono::seconds keepalive);
    void proveRoad(int qos) const;

    int brokerPort;
    pid_t eventServiceId;
    std::unique_ptr<test_support::ChildProcess> brokerProcess;
    std::unique_ptr<test_support::ChildProcess> serviceProcess;
};

} // namespace end_to_end
