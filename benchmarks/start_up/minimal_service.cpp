/**
 * The least that the service could do before it serves: ask the same of the platform, in the same
 * order, and take a name. Beside it start_up shows what the service itself takes.
 *
 * usage: minimal_service NUMBER
 *
 * NUMBER is how many events it declares, as the service does for each of its items, and how many
 * events it subscribes meanwhile on another thread, as the service does for each of its filters.
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

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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

using Expression = CHandle<subscribe_expression_t, subscribe_expression_free>;
/** The namespace and the name of each level of an event's topic. */
using Topic = std::vector<std::pair<const char *, std::string>>;

void subscribe(event_consumer_t *consumer, const Topic &topic)
{
    const Expression expression(subscribe_expression_new());
    std::string key = "topic0";
    for (const auto &[nameSpace, name] : topic) {
        subscribe_expression_add_key_value(expression.get(), key.c_str(), name.c_str());
        if (nameSpace != nullptr) {
            subscribe_expression_set_name_space(expression.get(), key.c_str(), nameSpace);
        }
        ++key.back();
    }
    const auto ignore = [](event_t *event, void *) { event_free(event); };
    require(event_consumer_subscribe(consumer, expression.get(), ignore, nullptr) >= 0,
            "cannot subscribe");
}

void subscribeFilters(event_consumer_t *consumer, int count)
{
    for (int number = 0; number < count; ++number) {
        subscribe(consumer, {{"tns1", "Device"},
                             {"tnsnorq", "Sensor"},
                             {"tnsnorq", "Room" + std::to_string(number)}});
    }
}

void declareItems(event_producer_t *producer, int count)
{
    for (int number = 0; number < count; ++number) {
        const auto declaration =
            tovrel::makeStatelessDeclaration(configuration::itemTopicFilter(number), false);
        require(event_producer_declare(producer, declaration.get()) >= 0, "cannot declare");
    }
    const auto generic = tovrel::makeGenericStatelessDeclaration();
    require(event_producer_declare(producer, generic.get()) >= 0, "cannot declare");
}

void run(int count)
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
    subscribe(consumer.get(), {{nullptr, "Device"}, {nullptr, "MQTT"}, {nullptr, "ClientStatus"}});
    const std::jthread subscribing([&] { subscribeFilters(consumer.get(), count); });
    for (const char *file :
         {"/etc/tovrel/event_to_mqtt_v2.conf", "/etc/tovrel/subscriptions_v2.conf"}) {
        confutils_sweep_temporary_files(file);
    }
    declareItems(producer.get(), count);
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
