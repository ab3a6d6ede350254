/**
 * A client of the event service for tests that kill it: holds a property with the value 1 and
 * subscribes to everything, says "ready", and waits to be ended.
 */
#include "event_handles.h"

#include <unistd.h>

#include <cstdio>

int main()
{
    using namespace event_test;
    const ProducerPtr producer = newProducer("victim producer");
    const ConsumerPtr consumer = newConsumer("victim consumer");
    const int id = event_producer_declare(producer.get(), propertyDeclaration("Victim").get());
    const int subscription = event_consumer_subscribe(
        consumer.get(), whereValue().get(), [](event_t *event, void *) { event_free(event); },
        nullptr);
    if (id < 0 || subscription < 0 || !sendNumber(producer.get(), id, 1)) {
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    pause();
    return 0;
}
