/** How the bridge comes up, ends itself when nothing is configured, and goes away. */
#include "interfaces/callback_barrier.h"
#include "interfaces/log.h"
#include "mqtt/event_bridge.h"
#include "mqtt/message_callback.h"

#include <utility>

namespace tovrel {

namespace {

constexpr guint TERMINATION_DELAY_SECONDS = 5;

gboolean setupSubscriptionsTask(gpointer data)
{
    return carryToMainLoop(G_SOURCE_REMOVE, [data] {
        if (data == nullptr) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sCannot setup subscriptions", LOG_PREFIX);
        } else {
            static_cast<EventBridge *>(data)->setupSubscriptions();
        }
        return G_SOURCE_REMOVE;
    });
}

gboolean terminationTask(gpointer data)
{
    return carryToMainLoop(G_SOURCE_REMOVE, [data] {
        if (data != nullptr) {
            static_cast<EventBridge *>(data)->quit();
        }
        return G_SOURCE_REMOVE;
    });
}

/** GLib takes the removal of a source that has run already for a mistake, and says so in the log.
 */
bool removeSource(guint id)
{
    return g_main_context_find_source_by_id(nullptr, id) != nullptr && g_source_remove(id) != FALSE;
}

} // namespace

EventBridge::EventBridge() : mainLoop(g_main_loop_new(nullptr, FALSE)) {}

EventBridge::~EventBridge()
{
    // Only once the consumer is gone is its publish worker, so the client goes as in quit() and
    // the members that publish() uses outlive this body.
    {
        const std::lock_guard lock(mqttMutex);
        mqttClient.reset();
    }
    mainLoop.reset();
    subscriptions = {};
    consumerHandler.reset();
    producerHandler.reset();
    dbusHandler.reset();
}

void EventBridge::run(std::unique_ptr<BaseDbusHandler> &newDbusHandler,
                      std::unique_ptr<BaseEventProducerHandler> &newProducerHandler,
                      std::unique_ptr<BaseEventConsumerHandler> &newConsumerHandler)
{
    mqttClient.reset(MQTTMsg_new2(messageCallback, this));
    const int result = MQTTMsg_init(mqttClient.get(), 0);
    if (result != MQTTMSG_OK) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to init: %d", LOG_PREFIX, result);
        return;
    }

    dbusHandler = std::move(newDbusHandler);
    const std::string serialNumber = dbusHandler->getSerialNumber();
    consumerHandler = std::move(newConsumerHandler);
    consumerHandler->start(serialNumber);
    producerHandler = std::move(newProducerHandler);
    loadSubscriptions();
    producerHandler->start();
    dbusHandler->start();

    g_idle_add(setupSubscriptionsTask, this);
    updateTerminationTask();
    runMainLoop(mainLoop.get());
}

void EventBridge::updateTerminationTask()
{
    const bool hasWork = (consumerHandler && consumerHandler->eventFilterCount() > 0) ||
                         !subscriptions.items.empty();
    if (!hasWork) {
        if (terminationSourceId == 0) {
            terminationSourceId =
                g_timeout_add_seconds(TERMINATION_DELAY_SECONDS, terminationTask, this);
        }
        return;
    }
    if (terminationSourceId == 0) {
        return;
    }
    if (!removeSource(terminationSourceId)) {
        tovrel_log(LOG_LEVEL_WARN, "%sCould not remove termination task", LOG_PREFIX);
        return;
    }
    terminationSourceId = 0;
}

void EventBridge::quit()
{
    if (!dbusHandler->releaseNameAndQuit(mainLoop.get())) {
        g_main_loop_quit(mainLoop.get());
    }
    const std::lock_guard lock(mqttMutex);
    mqttClient.reset();
}

} // namespace tovrel
