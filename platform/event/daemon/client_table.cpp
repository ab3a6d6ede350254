#include "event/daemon/client_table.h"

#include "event/core/barrier.h"
#include "event/core/declaration.h"
#include "event/core/log.h"

#include <cerrno>
#include <utility>

namespace norq::event {

Answer ClientTable::open(const std::string &busName, const std::string &name, Descriptor &socket)
{
    if (const Status valid = checkName(name, "client name"); !valid || name.empty()) {
        return {Refusal::INVALID, valid ? "the client name is empty" : valid.text()};
    }
    connections.erase(busName);
    if (!clients.hasRoomForClient()) {
        return {Refusal::LIMIT, "there are too many clients"};
    }
    auto connection = std::make_unique<Connection>(
        name, busName, clients, [this](Connection &over, Connection::End why) { end(over, why); });
    socket = connection->open(loop);
    if (!socket || !watchName(*connection)) {
        socket.reset();
        return {Refusal::LIMIT, "resources are exhausted"};
    }
    connections.emplace(busName, std::move(connection));
    return {};
}

Connection *ClientTable::find(const std::string &busName)
{
    const auto found = connections.find(busName);
    return found == connections.end() ? nullptr : found->second.get();
}

/** Fails as well when the client has left the bus already. */
bool ClientTable::watchName(Connection &connection)
{
    if (sd_bus_track_new(bus, Out(connection.track), onNameLost, &connection) < 0) {
        return false;
    }
    return sd_bus_track_add_name(connection.track.get(), connection.busName.c_str()) >= 0;
}

void ClientTable::end(Connection &connection, Connection::End why)
{
    if (why == Connection::End::MALFORMED && misbehaviourLog.admits()) {
        norq_event_log(G_LOG_LEVEL_WARNING,
                       "Client '%s' (%s) sent what is no event of its own, closing it",
                       connection.name.c_str(), connection.busName.c_str());
    }
    const std::string busName = connection.busName; // outlives the connection
    connections.erase(busName);
}

int ClientTable::onNameLost(sd_bus_track * /*track*/, void *self)
{
    return withBarrier("Removing a client", -ENOMEM, [self] {
        auto *connection = static_cast<Connection *>(self);
        connection->drain(); // what it sent before it left counts
        connection->end(Connection::End::HANG_UP);
        return 0;
    });
}

} // namespace norq::event
