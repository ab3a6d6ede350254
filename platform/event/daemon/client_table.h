/** All connections, by the clients' unique names on the bus. */
#pragma once

#include "event/daemon/connection.h"
#include "event/daemon/rate_limit.h"
#include "event/daemon/registry.h"

#include <memory>
#include <string>
#include <unordered_map>

namespace norq::event {

/** Opens clients, and removes them when they hang up, leave the bus or misbehave. */
class ClientTable {
public:
    ClientTable(sd_event *eventLoop, sd_bus *connection) : loop(eventLoop), bus(connection) {}

    /**
     * Opens a client for a caller; one that it had opened before ends.
     *
     * @param socket the caller's end of the socket
     */
    Answer open(const std::string &busName, const std::string &name, Descriptor &socket);
    /** The client of a caller; nullptr when it has opened none. */
    Connection *find(const std::string &busName);

    Registry &registry() { return clients; }

private:
    bool watchName(Connection &connection);
    void end(Connection &connection, Connection::End why);
    static int onNameLost(sd_bus_track *track, void *self);

    sd_event *loop;
    sd_bus *bus;
    Registry clients;
    std::unordered_map<std::string, std::unique_ptr<Connection>> connections;
    RateLimit misbehaviourLog;
};

} // namespace norq::event
