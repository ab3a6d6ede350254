/** norq-eventd: the event service of the device. */
#include "event/core/bus_handles.h"
#include "event/core/bus_names.h"
#include "event/core/log.h"
#include "event/daemon/bus_service.h"
#include "event/daemon/client_table.h"

#include <norq/log.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <system_error>

using namespace norq::event;

namespace {

void check(int result, const char *what)
{
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

/** Lets the usual signals end the event loop. */
void endOnSignals(sd_event *loop)
{
    for (const int number : {SIGTERM, SIGINT}) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, number);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        check(sd_event_add_signal(loop, nullptr, number, nullptr, nullptr), "watching signals");
    }
}

int serve()
{
    EventLoop loop;
    check(sd_event_default(Out(loop)), "making the event loop");
    endOnSignals(loop.get());

    Bus bus;
    check(sd_bus_open_system_with_description(Out(bus), "norq-eventd"), "connecting to the bus");
    check(sd_bus_set_exit_on_disconnect(bus.get(), 1), "watching the bus");
    check(sd_bus_attach_event(bus.get(), loop.get(), SD_EVENT_PRIORITY_NORMAL),
          "attaching the bus");

    ClientTable clients(loop.get(), bus.get());
    BusService service(clients);
    check(service.attach(bus.get()), "making the bus object");
    check(sd_bus_request_name(bus.get(), BUS_NAME, 0), "taking the bus name");
    norq_event_log(G_LOG_LEVEL_INFO, "The event service is ready");

    const int status = sd_event_loop(loop.get());
    check(status, "running the event loop");
    return status;
}

} // namespace

/**
 * One thread with one event loop carries the bus and the sockets of all clients. The loop ends with
 * SIGTERM or SIGINT (exit status 0), or with the loss of the bus (status 1, for the service manager
 * to start it again: its clients come back by themselves). A failure at the start gives status 1.
 */
int main()
{
    nq_log_syslog("norq-eventd");
    try {
        return serve();
    } catch (const std::exception &failure) {
        norq_event_log(LOG_ERROR_LEVEL, "The event service ends: %s", failure.what());
        return EXIT_FAILURE;
    }
}
