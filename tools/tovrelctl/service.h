/** The service as the tool sees it: requests to its configuration API over the system bus. */
#pragma once

#include "interfaces/c_handles.h"
#include "tovrelctl/json.h"

#include <systemd/sd-bus.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tovrelctl {

/** One request; docs/configuration-api.md explains its members. */
struct Request {
    std::string operation;
    std::vector<std::string> path{};
    Json data{};
    bool replace = false;
    bool omitReadOnly = false;
};

/**
 * A connection to the system bus. The service is started by the first request when it does not
 * run. One thread.
 */
class Service {
public:
    /** Connects. Throws Unreachable. */
    Service();

    /**
     * Sends a request and waits for its answer, 25 seconds at most.
     *
     * @return "data" of the answer
     * @throws Refused when the service answers with an error, Unreachable without an answer,
     *         Failure when the answer is none
     */
    Json request(const Request &request);

    /**
     * How the device's MQTT client is doing, by the names of docs/device-services.md; nothing when
     * nobody on the bus knows.
     */
    std::optional<std::map<std::string, std::string>> mqttStatus();

private:
    using Bus = tovrel::CHandle<sd_bus, sd_bus_flush_close_unref>;

    std::string handleRequest(const std::string &text);

    Bus bus;
};

} // namespace tovrelctl
