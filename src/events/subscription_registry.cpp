#include "events/subscription_registry.h"

#include <optional>

namespace tovrel {

SubscriptionRegistry &SubscriptionRegistry::instance()
{
    // Never destroyed: the program's bridge, and with it the consumer that empties this registry,
    // goes as late as any static object does.
    static SubscriptionRegistry &registry = *new SubscriptionRegistry;
    return registry;
}

bool SubscriptionRegistry::insert(std::int32_t slot, const SubscriptionHandle &handle)
{
    const std::lock_guard lock(mutex);
    return handles.try_emplace(slot, handle).second;
}

void SubscriptionRegistry::setSubscriptionId(std::int32_t slot, std::int32_t subscriptionId)
{
    const std::lock_guard lock(mutex);
    const auto found = handles.find(slot);
    if (found != handles.end()) {
        found->second.subscriptionId = subscriptionId;
    }
}

std::map<std::int32_t, SubscriptionHandle> SubscriptionRegistry::records() const
{
    const std::lock_guard lock(mutex);
    return handles;
}

void SubscriptionRegistry::remove(std::int32_t slot)
{
    const std::lock_guard lock(mutex);
    handles.erase(slot);
}

void SubscriptionRegistry::clear()
{
    std::unique_lock lock(mutex);
    handles.clear();
    deliveries.waitForAll(lock);
}

bool SubscriptionRegistry::withRecord(
    std::int32_t slot, const std::function<void(const SubscriptionHandle &)> &deliver)
{
    SubscriptionHandle handle;
    std::optional<CallsUnderWay::Call> counted;
    {
        const std::lock_guard lock(mutex);
        const auto found = handles.find(slot);
        if (found == handles.end()) {
            return false;
        }
        handle = found->second;
        counted.emplace(deliveries, mutex);
    }
    deliver(handle);
    return true;
}

} // namespace tovrel
