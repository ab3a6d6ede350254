/**
 * The least that the service could do before it serves: ask the same of the platform, in the same
 * order, and take a name. Beside it start_up shows what the service itself takes.
 *
 * usage: minimal_service NUMBER
 *
 * NUMBER is how many events it declares, as the service does for each of its items.
 */
#include "bus.h"
#include "configuration/documents.h"
#include "interfaces/c_handles.h"
#include "mqtt/event_declarations.h"

#include <norq/confutils.h>
#include <norq/event_consumer.h>
#include <norq/event_producer.h>
#include <norq/log.h>
#include <norq/mqtt_messaging.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

namespace {

using tovrel::CHandle;

void require(bool condition, const char *what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

void ignoreMessage(const char * /*topic*/, bool /*prefix*/, const char * /*payload*/,
                   int /*length*/, void * /*data*/)
{
}

void askForSerialNumber(sd_bus *bus)
{
    tovrel::MallocText serial;
    benchmarks::checked(sd_bus_get_property_string(bus, "com.norq.BasicDeviceInfo1",
                                                   "/com/norq/BasicDeviceInfo1",
                                                   "com.norq.Configuration.Legacy", "SerialNumber",
                                                   nullptr, tovrel::OutParameter(serial)),
                        "SerialNumber");
}

void subscribeStatus(event_consumer_t *consumer)
{
    const CHandle<subscribe_expression_t, subscribe_expression_free> expression(
        subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", "Device");
    subscribe_expression_add_key_value(expression.get(), "topic1", "MQTT");
    subscribe_expression_add_key_value(expression.get(), "topic2", "ClientStatus");
    require(event_consumer_subscribe(
                consumer, expression.get(), [](event_t *event, void *) { event_free(event); },
                nullptr) >= 0,
            "cannot subscribe");
}

void run(int declarations)
{
    nq_log_syslog("minimal");
    const benchmarks::Bus bus = benchmarks::openBus();
    benchmarks::takeOwnName(bus.get());
    const CHandle<event_producer_t, event_producer_free> producer(
        event_producer_new("minimal", nullptr, -1, 0));
    const CHandle<event_consumer_t, event_consumer_free> consumer(event_consumer_new("minimal"));
    const CHandle<MQTTMsg_t, MQTTMsg_delete> client(MQTTMsg_new2(ignoreMessage, nullptr));
    require(MQTTMsg_init(client.get(), 0) == MQTTMSG_OK, "cannot initialise the MQTT client");
    askForSerialNumber(bus.get());
    subscribeStatus(consumer.get());
    for (const char *file :
         {"/etc/tovrel/event_to_mqtt_v2.conf", "/etc/tovrel/subscriptions_v2.conf"}) {
        confutils_sweep_temporary_files(file);
    }
    for (int number = 0; number < declarations; ++number) {
        const auto declaration =
            tovrel::makeStatelessDeclaration(configuration::itemTopicFilter(number), false);
        require(event_producer_declare(producer.get(), declaration.get()) >= 0, "cannot declare");
    }
    const auto generic = tovrel::makeGenericStatelessDeclaration();
    require(event_producer_declare(producer.get(), generic.get()) >= 0, "cannot declare");
    benchmarks::serve(bus.get());
}

} // namespace

int main(int argc, char **argv)
{
    try {
        run(argc > 1 ? std::atoi(argv[1]) : 0);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    }
    return EXIT_FAILURE;
}
