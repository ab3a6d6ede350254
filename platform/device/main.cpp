/** norq-deviced: tells other programs about the device and its MQTT client. */
#include "device/client_status.h"
#include "device/device_facts.h"
#include "device/device_info_object.h"
#include "device/mqtt_status_object.h"
#include "event/core/bus_handles.h"
#include "event/core/log.h"

#include <norq/log.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <system_error>

using namespace norq;

namespace {

void check(int result, const char *what)
{
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

/** Lets the usual signals end the event loop. To be called before there is another thread. */
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

/** The connection has left its event loop by now: the loop is given instead. */
int onDisconnected(sd_bus_message * /*message*/, void *loop, sd_bus_error * /*error*/)
{
    norq_event_log(norq::event::LOG_ERROR_LEVEL, "The system bus is gone, the device services end");
    return sd_event_exit(static_cast<sd_event *>(loop), EXIT_FAILURE);
}

void watchDisconnection(sd_bus *bus, sd_event *loop)
{
    check(sd_bus_match_signal(bus, nullptr, "org.freedesktop.DBus.Local",
                              "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                              "Disconnected", onDisconnected, loop),
          "watching the bus");
}

int serve()
{
    norq::event::EventLoop loop;
    check(sd_event_default(norq::event::Out(loop)), "making the event loop");
    endOnSignals(loop.get());

    norq::event::Bus bus;
    check(sd_bus_open_system_with_description(norq::event::Out(bus), "norq-deviced"),
          "connecting to the bus");
    watchDisconnection(bus.get(), loop.get());
    check(sd_bus_attach_event(bus.get(), loop.get(), SD_EVENT_PRIORITY_NORMAL),
          "attaching the bus");

    device::FactsReader facts;
    device::ClientStatusWatch status;
    device::DeviceInfoObject deviceInfo(facts);
    device::MqttStatusObject mqttStatus(facts, status);
    check(deviceInfo.attach(bus.get()), "making the object of the device");
    check(mqttStatus.attach(bus.get()), "making the object of the MQTT client");
    check(sd_bus_request_name(bus.get(), device::DeviceInfoObject::BUS_NAME, 0),
          "taking the name of the device's service");
    // Last: to the service manager this name says that everything is there.
    check(sd_bus_request_name(bus.get(), device::MqttStatusObject::BUS_NAME, 0),
          "taking the name of the MQTT client's service");
    norq_event_log(G_LOG_LEVEL_INFO, "The device services are ready");

    const int exitStatus = sd_event_loop(loop.get());
    check(exitStatus, "running the event loop");
    return exitStatus;
}

} // namespace

/**
 * One thread with one event loop answers on the bus; a thread of the event library brings the
 * MQTT client's status. The loop ends with SIGTERM or SIGINT (exit status 0), or with the loss of
 * the bus (status 1, for the service manager to start it again). A failure at the start, such as a
 * name that is taken already, gives status 1.
 */
int main()
{
    nq_log_syslog("norq-deviced");
    try {
        return serve();
    } catch (const std::exception &failure) {
        norq_event_log(norq::event::LOG_ERROR_LEVEL, "The device services end: %s", failure.what());
        return EXIT_FAILURE;
    }
}
