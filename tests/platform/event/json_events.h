/** Prepared events for tests of their rendering. */
#pragma once

#include <norq/event_producer.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace json_test {

struct FreeEvent {
    void operator()(event_t *event) const { event_free(event); }
};
using Event = std::unique_ptr<event_t, FreeEvent>;

struct FreeOptions {
    void operator()(json_options_t *options) const { json_options_free(options); }
};
using Options = std::unique_ptr<json_options_t, FreeOptions>;

/** 2026-11-21T08:00:00.250Z */
inline constexpr std::int64_t EIGHT_O_CLOCK = 1795248000250000;

/**
 * Describes one event, with a fixed time and without topic, items and property unless told
 * otherwise. Keys are open and set, as in most events.
 */
class EventBuilder {
public:
    /** Appends a level to the topic; an empty namespace is none. */
    EventBuilder &level(const std::string &nameSpace, const std::string &name);
    /** Adds a key with its value and tags. A string value must outlive build(). */
    EventBuilder &item(const std::string &key, event_value_t value,
                       const std::vector<std::string> &tags = {});
    /** Adds a key that stays unset. */
    EventBuilder &unset(const std::string &key);
    EventBuilder &property(const std::string &key);
    EventBuilder &time(std::int64_t microseconds);

    /** Prepares the event, no service needed; throws std::runtime_error when refused. */
    [[nodiscard]] Event build() const;

private:
    struct Key {
        std::string name;
        std::string nameSpace;
        std::optional<event_value_t> value;
        std::string text; // what a string value points to
        std::vector<std::string> tags;
    };

    std::vector<Key> keys;
    std::string stateKey;
    unsigned int levels = 0;
    std::int64_t utc = EIGHT_O_CLOCK;
};

/** A sample event under a name that says what is special about it. */
struct Sample {
    std::string name;
    EventBuilder event;
};

/** Events of every kind, odd ones included. */
std::vector<Sample> samples();

/** The event that the documentation shows. */
EventBuilder documentedEvent();

/** The rendered text; empty when it is NULL. */
std::string render(const Event &event, const json_options_t *options = nullptr);

} // namespace json_test
