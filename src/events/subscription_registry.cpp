#include "events/subscription_registry.h"

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

void SubscriptionRegistry::clear()
{
    std::unique_lock lock(mutex);
    handles.clear();
    idle.wait(lock, [this] { return deliveriesUnderWay == 0; });
}

bool SubscriptionRegistry::withRecord(
    std::int32_t slot, const std::function<void(const SubscriptionHandle &)> &deliver)
{
    SubscriptionHandle handle;
    {
        const std::lock_guard lock(mutex);
        const auto found = handles.find(slot);
        if (found == handles.end()) {
            return false;
        }
        handle = found->second;
        ++deliveriesUnderWay;
    }
    struct Finish {
        SubscriptionRegistry &registry;
        ~Finish()
        {
            const std::lock_guard lock(registry.mutex);
            --registry.deliveriesUnderWay;
            registry.idle.notify_all();
        }
    } const finish{*this};
    deliver(handle);
    return true;
}

} // namespace tovrel
