#include "platform/mqtt/fake_event_service.h"

#include <norq/event_producer.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>

namespace {

struct Record {
    std::mutex mutex; // guards all below
    std::vector<mqtt_test::FakeEventService::Status> sent;
    std::vector<std::string> keys;
    bool away = false;
    bool stuck = false;
    int attempts = 0;
    int producers = 0;
};

Record &record()
{
    static Record instance;
    return instance;
}

} // namespace

struct event_declaration {
    std::map<std::string, std::string> keys;
};
struct event_producer {
    int timeoutMs;
};
struct event {
    std::map<std::string, bool> values;
};

event_declaration_t *event_declaration_new(unsigned int /*flags*/, GError ** /*error*/)
{
    return new event_declaration;
}
void event_declaration_free(event_declaration_t *declaration)
{
    delete declaration;
}
int event_declaration_add_key_value(event_declaration_t *declaration, const char *key,
                                    event_value_t value, GError ** /*error*/)
{
    declaration->keys[key] = std::string("=") + value.as.string;
    return 1;
}
int event_declaration_add_key(event_declaration_t *declaration, const char *key,
                              event_value_type type, GError ** /*error*/)
{
    declaration->keys[key] = ":" + std::to_string(type);
    return 1;
}
int event_declaration_set_name_space(event_declaration_t *declaration, const char *key,
                                     const char *name_space)
{
    declaration->keys.at(key) += std::string(" ") + name_space;
    return 1;
}
int event_declaration_set_nice_names(event_declaration_t * /*declaration*/, const char * /*key*/,
                                     const char * /*key_name*/, const char * /*value_name*/)
{
    return 1;
}
int event_declaration_add_key_tag(event_declaration_t *declaration, const char *key,
                                  const char *tag)
{
    declaration->keys.at(key) += std::string(" ") + tag;
    return 1;
}
int event_declaration_set_property(event_declaration_t *declaration, const char *key,
                                   unsigned int /*flags*/, GError ** /*error*/)
{
    declaration->keys.at(key) += "!";
    return 1;
}
event_producer_t *event_producer_new(const char * /*name*/, void * /*user_data*/, int timeout_ms,
                                     unsigned int /*flags*/)
{
    const std::lock_guard guard(record().mutex);
    ++record().producers;
    return new event_producer{timeout_ms};
}
void event_producer_free(event_producer_t *producer)
{
    if (producer != nullptr) {
        const std::lock_guard guard(record().mutex);
        --record().producers;
        delete producer;
    }
}
int event_producer_declare(event_producer_t * /*producer*/, const event_declaration_t *declaration)
{
    const std::lock_guard guard(record().mutex);
    record().keys.clear();
    for (const auto &[key, rest] : declaration->keys) {
        record().keys.push_back(key + rest);
    }
    return 0;
}
event_t *event_producer_prepare_event(event_producer_t * /*producer*/, int /*id*/, int64_t /*time*/,
                                      GError ** /*error*/)
{
    return new event;
}
void event_free(event_t *event)
{
    delete event;
}
int event_set_value(event_t *event, const char *key, event_value_t value, GError ** /*error*/)
{
    event->values[key] = value.as.boolean != 0;
    return 1;
}
int event_producer_send_event(event_producer_t *producer, const event_t *event, GError ** /*error*/)
{
    std::unique_lock guard(record().mutex);
    ++record().attempts;
    if (record().stuck) {
        guard.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(producer->timeoutMs));
        return 0;
    }
    if (record().away) {
        return 0;
    }
    record().sent.push_back({event->values.at("active"), event->values.at("connected")});
    return 1;
}

namespace mqtt_test {

void FakeEventService::reset()
{
    const std::lock_guard guard(record().mutex);
    record().sent.clear();
    record().keys.clear();
    record().away = false;
    record().stuck = false;
    record().attempts = 0;
}

std::vector<FakeEventService::Status> FakeEventService::sent()
{
    const std::lock_guard guard(record().mutex);
    return record().sent;
}

std::vector<std::string> FakeEventService::declaredKeys()
{
    const std::lock_guard guard(record().mutex);
    return record().keys;
}

void FakeEventService::setAway(bool away)
{
    const std::lock_guard guard(record().mutex);
    record().away = away;
}

void FakeEventService::setStuck(bool stuck)
{
    const std::lock_guard guard(record().mutex);
    record().stuck = stuck;
}

int FakeEventService::attempts()
{
    const std::lock_guard guard(record().mutex);
    return record().attempts;
}

int FakeEventService::producers()
{
    const std::lock_guard guard(record().mutex);
    return record().producers;
}

} // namespace mqtt_test
