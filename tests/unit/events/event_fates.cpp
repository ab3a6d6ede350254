#include "unit/events/event_fates.h"

#include "events/subscription_registry.h"

#include <atomic>
#include <functional>

namespace tovrel::test {

namespace {

std::atomic<EventFates *> current = nullptr;

} // namespace

std::ostream &operator<<(std::ostream &stream, const FateCounts &counts)
{
    return stream << counts.published << " published, " << counts.droppedByBound
                  << " dropped by the bound, " << counts.discarded << " discarded, "
                  << counts.notQueued << " not queued, " << counts.unaccounted
                  << " unaccounted for";
}

EventFates::EventFates(EventConsumerHandler &ofConsumer) : consumer(ofConsumer)
{
    current = this;
}

EventFates::~EventFates()
{
    current = nullptr;
}

std::string EventFates::nextPayload() const
{
    return std::to_string(deliveredCount());
}

std::size_t EventFates::deliveredCount() const
{
    const std::lock_guard lock(mutex);
    return fates.size();
}

void EventFates::notePublished(const std::string &payload)
{
    const std::size_t number = std::stoul(payload);
    const std::lock_guard lock(mutex);
    ++fates.at(number).publications;
    outOfOrder += lastPublished && *lastPublished >= number ? 1 : 0;
    lastPublished = number;
}

void EventFates::noteStatusWorker()
{
    const std::lock_guard lock(mutex);
    statusThread = std::this_thread::get_id();
}

void EventFates::enqueueEvent(const std::shared_ptr<EventContainer> &container,
                              const event_t *event)
{
    std::size_t number = 0;
    {
        const std::lock_guard lock(mutex);
        number = fates.size();
        fates.emplace_back();
        delivering = number;
        deliveringThread = std::this_thread::get_id();
    }
    std::shared_ptr<EventContainer> followed(new EventContainer(*container),
                                             [this, number](EventContainer *ended) {
                                                 noteEnd(number);
                                                 delete ended;
                                             });
    try {
        consumer.enqueueEvent(followed, event);
    } catch (...) {
        const std::lock_guard lock(mutex);
        fates.at(number).notQueued = true;
        throw;
    }
}

void EventFates::noteEnd(std::size_t number)
{
    const auto thread = std::this_thread::get_id();
    const std::lock_guard lock(mutex);
    Fate &fate = fates.at(number);
    if (thread == deliveringThread && delivering != number) {
        fate.end = End::LATER_DELIVERY;
    } else if (thread == statusThread) {
        fate.end = End::STATUS_WORKER;
    } else {
        fate.end = End::OTHER;
    }
}

FateCounts EventFates::counts() const
{
    const std::lock_guard lock(mutex);
    FateCounts counts;
    for (const Fate &fate : fates) {
        if (fate.publications == 1 && !fate.notQueued) {
            ++counts.published;
        } else if (fate.publications != 0) {
            ++counts.unaccounted;
        } else if (fate.notQueued) {
            ++counts.notQueued;
        } else if (fate.end == End::LATER_DELIVERY) {
            ++counts.droppedByBound;
        } else if (fate.end == End::STATUS_WORKER) {
            ++counts.discarded;
        } else {
            ++counts.unaccounted;
        }
    }
    counts.unaccounted += outOfOrder;
    return counts;
}

} // namespace tovrel::test

using tovrel::SubscriptionHandle;
using tovrel::SubscriptionRegistry;

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
// Mangled name of SubscriptionRegistry::withRecord().
bool __real__ZN6tovrel20SubscriptionRegistry10withRecordEiRKSt8functionIFvRKNS_18SubscriptionHandleEEE(
    SubscriptionRegistry *registry, std::int32_t slot,
    const std::function<void(const SubscriptionHandle &)> &deliver);
bool __wrap__ZN6tovrel20SubscriptionRegistry10withRecordEiRKSt8functionIFvRKNS_18SubscriptionHandleEEE(
    SubscriptionRegistry *registry, std::int32_t slot,
    const std::function<void(const SubscriptionHandle &)> &deliver);
}

bool __wrap__ZN6tovrel20SubscriptionRegistry10withRecordEiRKSt8functionIFvRKNS_18SubscriptionHandleEEE(
    SubscriptionRegistry *registry, std::int32_t slot,
    const std::function<void(const SubscriptionHandle &)> &deliver)
{
    return __real__ZN6tovrel20SubscriptionRegistry10withRecordEiRKSt8functionIFvRKNS_18SubscriptionHandleEEE(
        registry, slot, [&deliver](const SubscriptionHandle &record) {
            SubscriptionHandle handed = record;
            if (tovrel::test::EventFates *const fates = tovrel::test::current) {
                handed.handler = fates;
            }
            deliver(handed);
        });
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
