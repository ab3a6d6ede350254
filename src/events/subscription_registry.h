/** Which event filter subscription belongs to which slot, for the deliveries that name a slot. */
#pragma once

#include "events/calls_under_way.h"
#include "events/event_filter_config.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

namespace tovrel {

class BaseEventConsumerHandler;

/** What is known about one event filter subscription. */
struct SubscriptionHandle {
    /** Where its events go; may be null. */
    BaseEventConsumerHandler *handler = nullptr;
    /** The event service's id. */
    std::int32_t subscriptionId = -1;
    std::int32_t qos = 0;
    RetainPolicy retainPolicy = RetainPolicy::NONE;
};

/**
 * The process-wide table from slot index to subscription. The status worker fills and empties it
 * while the event service's thread looks slots up; the thread that makes and destroys the handler
 * empties it besides. A delivery stays counted for as long as its handler is used, so that emptying
 * the table can wait for deliveries under way.
 */
class SubscriptionRegistry {
public:
    /** The one registry of the process. */
    static SubscriptionRegistry &instance();

    /** Adds a record; one that is there already stays. Whether it was added. */
    bool insert(std::int32_t slot, const SubscriptionHandle &handle);

    /** Notes the event service's id of a slot's subscription. */
    void setSubscriptionId(std::int32_t slot, std::int32_t subscriptionId);

    /** All records in the order of their slots. */
    [[nodiscard]] std::map<std::int32_t, SubscriptionHandle> records() const;

    /** Forgets one record. Deliveries under way are not waited for. */
    void remove(std::int32_t slot);

    /**
     * Forgets all records and returns when no delivery uses any of them. Not to be called from a
     * delivery.
     */
    void clear();

    /**
     * Calls `deliver` with the record of a slot, outside the lock. False, without a call, when the
     * slot has no record.
     */
    bool withRecord(std::int32_t slot,
                    const std::function<void(const SubscriptionHandle &)> &deliver);

private:
    mutable std::mutex mutex; // guards both members
    std::map<std::int32_t, SubscriptionHandle> handles;
    CallsUnderWay deliveries;
};

} // namespace tovrel
