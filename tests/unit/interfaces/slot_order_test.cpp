/**
 * The order of the virtual operations of the abstract bases, which separately built parts of a
 * device rely on. Read from pointers to members as the Itanium C++ ABI lays them out, that of every
 * compiler the service is built with: the first word is the offset in the table of operations, on
 * some processors plus one, so a division gives the slot on all of them. The first two slots are
 * the destructor's.
 */
#include "interfaces/base_dbus_handler.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/base_event_consumer_handler.h"
#include "interfaces/base_event_producer_handler.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace tovrel::test {

namespace {

template <typename Member>
std::size_t slotOf(Member member)
{
    const auto words = std::bit_cast<std::array<std::uintptr_t, 2>>(member);
    return words[0] / sizeof(void *);
}

template <typename... Members>
std::vector<std::size_t> slotsOf(Members... members)
{
    return {slotOf(members)...};
}

/** Consecutive slots behind the destructor's two. */
std::vector<std::size_t> slotsInOrder(std::size_t count)
{
    std::vector<std::size_t> slots(count);
    std::iota(slots.begin(), slots.end(), std::size_t{2});
    return slots;
}

TEST(SlotOrder, OfTheDbusHandlerIsKept)
{
    using Base = BaseDbusHandler;
    EXPECT_EQ(slotsOf(&Base::start, &Base::handleSetMQTTToEventConfig,
                      &Base::fillMQTTToEventConfigReply, &Base::handleSetEventToMQTTConfig,
                      &Base::fillEventToMQTTConfigReply, &Base::getSerialNumber,
                      &Base::getDeviceTopicPrefix, &Base::releaseNameAndQuit),
              slotsInOrder(8));
}

TEST(SlotOrder, OfTheEventBridgeIsKept)
{
    using Base = BaseEventBridge;
    using ReadPublication = const PublicationConfig &(Base::*)() const;
    using EditPublication = PublicationConfig &(Base::*)();
    using ReadStore = const SubscriptionStore &(Base::*)() const;
    using EditStore = SubscriptionStore &(Base::*)();
    EXPECT_EQ(slotsOf(&Base::run, &Base::quit, &Base::replaceSubscriptions,
                      &Base::setPublicationConfig, &Base::refreshPublication,
                      static_cast<ReadPublication>(&Base::getPublicationConfig),
                      static_cast<EditPublication>(&Base::getPublicationConfig),
                      &Base::setupSubscriptions, &Base::publish,
                      static_cast<ReadStore>(&Base::getSubscriptions),
                      static_cast<EditStore>(&Base::getSubscriptions), &Base::resetConfiguration,
                      &Base::getDeviceTopicPrefix),
              slotsInOrder(13));
}

TEST(SlotOrder, OfTheEventConsumerHandlerIsKept)
{
    using Base = BaseEventConsumerHandler;
    EXPECT_EQ(slotsOf(&Base::start, &Base::setPublicationConfig, &Base::refreshSubscriptions,
                      &Base::setMessagingStatus, &Base::enqueueEvent, &Base::subscribeEventFilters,
                      &Base::unsubscribeEventFilters, &Base::getPublicationConfig,
                      &Base::eventFilterCount, &Base::statusWorker, &Base::publishWorker),
              slotsInOrder(11));
}

TEST(SlotOrder, OfTheEventProducerHandlerIsKept)
{
    using Base = BaseEventProducerHandler;
    EXPECT_EQ(slotsOf(&Base::start, &Base::declareStatelessEvent, &Base::declareStatefulEvent,
                      &Base::sendStatelessEvent, &Base::sendStatefulEvent,
                      &Base::undeclareAllEvents),
              slotsInOrder(6));
}

} // namespace

} // namespace tovrel::test
