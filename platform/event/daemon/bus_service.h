/** The control surface of the service on the bus. */
#pragma once

#include "event/core/bus_handles.h"
#include "event/daemon/client_table.h"

namespace norq::event {

/** Answers the methods of com.norq.EventService1. */
class BusService {
public:
    explicit BusService(ClientTable &table) : clients(table) {}

    /** Puts the object on the bus. Negative errno when that fails. */
    int attach(sd_bus *bus);

private:
    static int onOpen(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onDeclare(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onUndeclare(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onSubscribe(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onUnsubscribe(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onListDeclarations(sd_bus_message *message, void *self, sd_bus_error *error);
    static int onListMatching(sd_bus_message *message, void *self, sd_bus_error *error);

    int replyWithList(sd_bus_message *message, const Expression &expression);

    template <typename Handler>
    static int withClient(sd_bus_message *message, void *self, Handler handler);

    static const sd_bus_vtable METHODS[]; // NOLINT(modernize-avoid-c-arrays): given by sd-bus

    ClientTable &clients;
    BusSlot slot;
};

} // namespace norq::event
