/**
 * Stands in for the consumer side of the event service library and for the events it delivers.
 *
 * Unlike the library, it delivers on whatever thread a test chooses, on several at a time as well.
 * Every function can be made to fail by failCall() under its own name. Calls are recorded by
 * function name and arguments, what is read from events as well; a subscription stands in the
 * record with its conditions: "event_consumer_subscribe 3 topic0=tns1:Device !topic1". Thread-safe.
 */
#pragma once

#include <norq/event_consumer.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

/** A key of an event with its value. */
struct FakeItem {
    std::string name;
    std::string value;
    std::optional<std::string> nameSpace = std::nullopt;
    std::vector<std::string> tags = {};
};

/** What a received event holds, topic keys included. */
struct FakeReceivedEvent {
    std::vector<FakeItem> items = {};
    bool isProperty = false;
    bool isInternal = false;
    /** Its JSON document; none: it cannot be rendered. */
    std::optional<std::string> json = "{}";
    /** Runs while the event is being rendered, on the thread that delivers it. */
    std::function<void()> onRender = nullptr;
    /** Runs when it is asked whether it is internal, on the thread that delivers it. */
    std::function<void()> onInternalCheck = nullptr;
};

/** A subscription as it was made. */
struct FakeSubscription {
    int id = -1;
    /** Conditions in the order of their addition, as "topic0=tns1:Device" or "!topic1". */
    std::string conditions;
    event_callback_t callback = nullptr;
    void *userData = nullptr;
};

/** Objects of the library that were made and not freed. */
struct FakeLivingObjects {
    int consumers = 0;
    int expressions = 0;
    int events = 0;
    int jsonOptions = 0;

    bool operator==(const FakeLivingObjects &) const = default;
};

/** Forgets all subscriptions, hooks and counts. No delivery may be under way. */
void resetFakeEventConsumer();

/** The living subscriptions in the order of their ids. */
std::vector<FakeSubscription> fakeSubscriptions();

/** Number of event_consumer_subscribe() calls that succeeded. */
int fakeSubscribeCount();

FakeLivingObjects fakeLivingObjects();

/**
 * Delivers an event to a subscription on the calling thread. False, with nothing delivered, when
 * the subscription does not live.
 */
bool deliverFakeEvent(int subscriptionId, const FakeReceivedEvent &event);

/** Makes an event by itself, to be given to a callback or freed by event_free(). */
event_t *newFakeEvent(const FakeReceivedEvent &event);

/**
 * Kept property values: what `values` gives for a new subscription is delivered to it before
 * event_consumer_subscribe() returns, on the same thread.
 */
void setFakeKeptValues(
    std::function<std::vector<FakeReceivedEvent>(const FakeSubscription &)> values);

/** Runs in every subscribe, unsubscribe and free of a consumer, on the calling thread. */
void setFakeConsumerHook(std::function<void()> hook);

/**
 * Whether unsubscribing and freeing wait for callbacks under way, as the library promises. Off, a
 * callback may still run when they return.
 */
void setFakeConsumerWaits(bool waits);

} // namespace tovrel::test
