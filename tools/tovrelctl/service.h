/** The service as the tool sees it: requests to its configuration API over the system bus. */
#pragma once

#include "interfaces/c_handles.h"
#include "tovrelctl/json.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tovrelctl {

/** The way to a node of the document. */
using Path = std::vector<std::string>;

/** One request; docs/configuration-api.md explains its members. */
struct Request {
    std::string operation;
    Path path{};
    std::optional<std::string> property{};
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
    /** Connects; `limit` is how long an answer is waited for. Throws Unreachable. */
    explicit Service(std::chrono::seconds limit);

    /**
     * Sends a request and waits for its answer.
     *
     * @return "data" of the answer; what is in it is not looked at
     * @throws Refused when the service answers with an error, Unreachable without an answer,
     *         Failure when the answer is none or the bus does not carry the request
     */
    Json request(const Request &request);

    /** The whole configuration, as an import takes it. Throws as request(). */
    Json configuration();

    /**
     * How the device's MQTT client is doing, by the names of docs/device-services.md; nothing when
     * nobody on the bus tells in a few seconds.
     */
    std::optional<std::map<std::string, std::string>> mqttStatus();

private:
    using Bus = tovrel::CHandle<sd_bus, sd_bus_flush_close_unref>;

    std::string handleRequest(const Request &request);

    std::chrono::microseconds timeLimit;
    Bus bus;
};

} // namespace tovrelctl
