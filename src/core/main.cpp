#include "core/dbus_handler.h"
#include "events/event_consumer_handler.h"
#include "interfaces/log.h"
#include "mqtt/event_bridge.h"
#include "mqtt/event_producer_handler.h"

#include <norq/log.h>

#include <cstdlib>
#include <exception>
#include <memory>

namespace {

/** The hub that owns the running service; there before main() and until after it. */
tovrel::EventBridge bridge;

} // namespace

/**
 * The service, from start to end:
 *
 *  1. The bridge exists already, with the main loop of the default context.
 *  2. Logging goes to the system log from the very first line.
 *  3. The collaborators are created: D-Bus handler (connects to the bus and takes the service's
 *     name), event producer, event consumer.
 *  4. The bridge takes them over and starts them: MQTT client, consumer, stored MQTT-to-event
 *     items, producer, bus. Then it runs the main loop on this thread, which carries everything
 *     but the libraries' own threads and the consumer's workers.
 *  5. The loop ends when the bus name has been given back, five seconds after nothing was left to
 *     do, or when an exception was carried out of one of its callbacks.
 *  6. The static bridge goes last: MQTT client, loop, items, consumer (joins its workers),
 *     producer, D-Bus handler.
 *
 * Exit status: 0 after a main loop that was ended, also when the MQTT client could not be
 * initialised and the loop never ran; 1 when an exception ended start-up or the main loop.
 */
int main()
{
    nq_log_syslog("tovrel");
    try {
        tovrel_log(tovrel::LOG_LEVEL_PROGRESS, "%stovrel starting", tovrel::LOG_PREFIX);

        std::unique_ptr<tovrel::BaseDbusHandler> dbusHandler =
            std::make_unique<tovrel::DbusHandler>(&bridge);
        tovrel_log(tovrel::LOG_LEVEL_PROGRESS, "%sCreated dbus handler", tovrel::LOG_PREFIX);

        std::unique_ptr<tovrel::BaseEventProducerHandler> producerHandler =
            std::make_unique<tovrel::EventProducerHandler>();
        tovrel_log(tovrel::LOG_LEVEL_PROGRESS, "%sCreated event producer", tovrel::LOG_PREFIX);

        std::unique_ptr<tovrel::BaseEventConsumerHandler> consumerHandler =
            std::make_unique<tovrel::EventConsumerHandler>(&bridge);
        tovrel_log(tovrel::LOG_LEVEL_PROGRESS, "%sCreated consumer handler", tovrel::LOG_PREFIX);

        bridge.run(dbusHandler, producerHandler, consumerHandler);
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        tovrel_log(tovrel::LOG_LEVEL_FAILURE,
                   "%sException when starting tovrel: %s, could not start", tovrel::LOG_PREFIX,
                   error.what());
        return EXIT_FAILURE;
    }
}
