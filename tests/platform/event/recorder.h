/** Keeps what a subscription receives. */
#pragma once

#include "event_handles.h"
#include "support/wait_until.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace event_test {

/** One received event: what most tests ask about. */
struct Received {
    std::string topic;
    std::int64_t number = -1; // -1 when the event has no key "number"
    bool initial = false;

    friend bool operator==(const Received &, const Received &) = default;
};

/**
 * Receives events on the library's thread; asked by the test on its own. Ends its subscriptions, so
 * that the consumers must live as long as the recorder.
 */
class Recorder {
public:
    Recorder() = default;
    ~Recorder()
    {
        for (const auto &[consumer, id] : subscriptions) {
            event_consumer_unsubscribe(consumer, id, 0);
        }
    }
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    /** Subscribes to what meets the expression. */
    int subscribe(event_consumer_t *consumer, const ExpressionPtr &expression = whereValue())
    {
        const int id = event_consumer_subscribe(consumer, expression.get(), take, this);
        subscriptions.emplace_back(consumer, id);
        return id;
    }

    [[nodiscard]] std::size_t count() const
    {
        const std::lock_guard guard(mutex);
        return received.size();
    }
    [[nodiscard]] std::vector<Received> all() const
    {
        const std::lock_guard guard(mutex);
        return received;
    }
    /** The numbers of all events in order. */
    [[nodiscard]] std::vector<std::int64_t> numbers() const
    {
        std::vector<std::int64_t> result;
        for (const Received &event : all()) {
            result.push_back(event.number);
        }
        return result;
    }
    /** Waits until there are at least so many. */
    [[nodiscard]] bool waitFor(std::size_t wanted) const
    {
        return test_support::waitUntil([&] { return count() >= wanted; });
    }
    /** Waits until an event with this number has come: all sent before it by the same producer have
     * then come too, or never will. */
    [[nodiscard]] bool waitForNumber(std::int64_t number) const
    {
        return test_support::waitUntil([&] {
            const std::lock_guard guard(mutex);
            return !received.empty() && received.back().number == number;
        });
    }
    /** The last event itself, for a closer look. */
    [[nodiscard]] EventPtr lastEvent() const
    {
        const std::lock_guard guard(mutex);
        return EventPtr(last ? event_copy(last.get()) : nullptr);
    }

private:
    static void take(event_t *event, void *self)
    {
        EventPtr owned(event);
        const char *topic = event_get_value(event, "topic0");
        const char *number = event_get_value(event, "number");
        Received entry{topic == nullptr ? "" : topic,
                       number == nullptr ? -1 : std::strtoll(number, nullptr, 10),
                       event_is_initial(event) != 0};
        auto *recorder = static_cast<Recorder *>(self);
        const std::lock_guard guard(recorder->mutex);
        recorder->received.push_back(std::move(entry));
        recorder->last = std::move(owned);
    }

    std::vector<std::pair<event_consumer_t *, int>> subscriptions;
    mutable std::mutex mutex; // guards received, last
    std::vector<Received> received;
    EventPtr last;
};

} // namespace event_test
