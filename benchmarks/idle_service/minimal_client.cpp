/**
 * The least that the service could be: links what it links, holds the connections that it holds,
 * and does nothing. Beside it idle_service shows what the service itself takes.
 */
#include <norq/confutils.h>
#include <norq/event_consumer.h>
#include <norq/event_producer.h>
#include <norq/log.h>
#include <norq/mqtt_messaging.h>

#include <glib.h>
#include <systemd/sd-bus.h>

#include <cstdlib>

namespace {

/** Room for the status, and for one filter for each QoS. */
constexpr int SUBSCRIPTIONS = 4;

void ignoreMessage(const char * /*topic*/, bool /*prefix*/, const char * /*payload*/,
                   int /*length*/, void * /*data*/)
{
}

void subscribe(event_consumer_t *consumer)
{
    for (int number = 0; number < SUBSCRIPTIONS; ++number) {
        subscribe_expression_t *expression = subscribe_expression_new();
        subscribe_expression_add_key_value(expression, "topic0", "Nothing");
        event_consumer_subscribe(
            consumer, expression, [](event_t *event, void *) { event_free(event); }, nullptr);
        subscribe_expression_free(expression);
    }
}

} // namespace

int main()
{
    nq_log_syslog("minimal");
    confutils_sweep_temporary_files("/etc/tovrel/event_to_mqtt_v2.conf");
    sd_bus *bus = nullptr;
    sd_event *events = nullptr;
    event_producer_t *producer = event_producer_new("minimal", nullptr, -1, 0);
    event_consumer_t *consumer = event_consumer_new("minimal");
    MQTTMsg_t *client = MQTTMsg_new2(ignoreMessage, nullptr);
    if (sd_bus_open_system(&bus) < 0 || sd_event_default(&events) < 0 ||
        sd_bus_attach_event(bus, events, SD_EVENT_PRIORITY_NORMAL) < 0 || producer == nullptr ||
        consumer == nullptr || client == nullptr || MQTTMsg_init(client, 0) != MQTTMSG_OK) {
        return EXIT_FAILURE;
    }
    subscribe(consumer);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return EXIT_SUCCESS; // never reached: whoever started it ends it
}
