#include "mqtt/status_announcer.h"

#include "mqtt/back_off.h"
#include "mqtt/quiet_thread.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace norq::mqtt {
namespace {

/** A run of changes longer than this while the service is slow is cut to its end. */
constexpr std::size_t MAX_CHANGES = 64;

using Declaration = std::unique_ptr<event_declaration_t, decltype(&event_declaration_free)>;
using Event = std::unique_ptr<event_t, decltype(&event_free)>;

struct TopicLevel {
    const char *key;
    const char *value;
    const char *nameSpace;
};

constexpr std::array TOPIC{TopicLevel{"topic0", "Device", "tns1"},
                           TopicLevel{"topic1", "MQTT", "tnsnorq"},
                           TopicLevel{"topic2", "ClientStatus", "tnsnorq"}};

bool addTopic(event_declaration_t *declaration)
{
    return std::ranges::all_of(TOPIC, [declaration](const TopicLevel &level) {
        return event_declaration_add_key_value(declaration, level.key,
                                               event_value_string(level.value), nullptr) &&
               event_declaration_set_name_space(declaration, level.key, level.nameSpace);
    });
}

bool addItem(event_declaration_t *declaration, const char *key, const char *niceName)
{
    return event_declaration_add_key(declaration, key, EVENT_VALUE_BOOLEAN, nullptr) &&
           event_declaration_add_key_tag(declaration, key, "onvif-data") &&
           event_declaration_set_nice_names(declaration, key, niceName, nullptr);
}

int declareStatus(event_producer_t *producer)
{
    const Declaration declaration(event_declaration_new(EVENT_DECLARATION_DEFAULT, nullptr),
                                  event_declaration_free);
    if (!declaration || !addTopic(declaration.get()) ||
        !addItem(declaration.get(), "active", "Active") ||
        !addItem(declaration.get(), "connected", "Connected") ||
        !event_declaration_set_property(declaration.get(), "connected", 0, nullptr)) {
        return -1;
    }
    return event_producer_declare(producer, declaration.get());
}

bool send(event_producer_t *producer, int declaration, ClientStatus status)
{
    const Event event(event_producer_prepare_event(producer, declaration, 0, nullptr), event_free);
    return event &&
           event_set_value(event.get(), "active", event_value_boolean(status.active), nullptr) &&
           event_set_value(event.get(), "connected", event_value_boolean(status.connected),
                           nullptr) &&
           event_producer_send_event(producer, event.get(), nullptr);
}

} // namespace

StatusAnnouncer::StatusAnnouncer() : thread(startQuietThread([this] { run(); })) {}

StatusAnnouncer::~StatusAnnouncer()
{
    stop();
}

void StatusAnnouncer::announce(ClientStatus status)
{
    const std::lock_guard guard(mutex);
    if (anyAnnounced && status == last) {
        return;
    }
    anyAnnounced = true;
    last = status;
    if (changes.size() >= MAX_CHANGES) {
        changes.clear();
    }
    changes.push_back(status);
    changed.notify_one();
}

void StatusAnnouncer::stop()
{
    {
        const std::lock_guard guard(mutex);
        stopping = true;
        changed.notify_one();
    }
    if (thread.joinable()) {
        thread.join();
    }
}

void StatusAnnouncer::run()
{
    const Producer producer(event_producer_new("mqtt-client", nullptr, SEND_TIMEOUT_MS, 0),
                            event_producer_free);
    const int declaration = producer ? declareStatus(producer.get()) : -1;
    if (declaration < 0) {
        g_warning("MQTT: the status event cannot be declared, the status is not announced");
        return;
    }
    work(producer.get(), declaration);
}

void StatusAnnouncer::work(event_producer_t *producer, int declaration)
{
    BackOff backOff;
    std::unique_lock lock(mutex);
    while (!stopping) {
        if (changes.empty()) {
            changed.wait(lock);
            continue;
        }
        const ClientStatus status = changes.front();
        changes.pop_front();
        lock.unlock();
        const bool sent = send(producer, declaration, status);
        lock.lock();
        if (sent) {
            backOff.reset();
            continue;
        }
        if (changes.empty()) {
            changes.push_back(status);
        }
        // A stale value of a state is of no use to anybody.
        changes.erase(changes.begin(), changes.end() - 1);
        changed.wait_for(lock, backOff.next(), [this] { return stopping; });
    }
}

} // namespace norq::mqtt
