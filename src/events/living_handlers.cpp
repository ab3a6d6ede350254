#include "events/living_handlers.h"

#include <optional>

namespace tovrel {

LivingHandlers &LivingHandlers::instance()
{
    // Never destroyed: a callback may come after the static objects have gone.
    static LivingHandlers &handlers = *new LivingHandlers;
    return handlers;
}

void LivingHandlers::add(const void *handler)
{
    const std::lock_guard lock(mutex);
    handlers.insert(handler);
}

void LivingHandlers::remove(const void *handler)
{
    std::unique_lock lock(mutex);
    handlers.erase(handler);
    uses.waitForAll(lock);
}

bool LivingHandlers::ifLiving(const void *handler, const std::function<void()> &use)
{
    std::optional<CallsUnderWay::Call> counted;
    {
        const std::lock_guard lock(mutex);
        if (!handlers.contains(handler)) {
            return false;
        }
        counted.emplace(uses, mutex);
    }
    use();
    return true;
}

} // namespace tovrel
