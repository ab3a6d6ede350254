/** Events and what is taken from them. */
#pragma once

#include "events/event_translation.h"
#include "fakes/call_record.h"
#include "fakes/fake_event_consumer.h"
#include "interfaces/c_handles.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <optional>

namespace tovrel::test {

/** A property event with three levels in two namespaces, a source item and one without tags. */
inline FakeReceivedEvent exampleEvent()
{
    return {.items = {{"topic0", "Device", "tns1"},
                      {"topic1", "Beta", "tnsnorq"},
                      {"topic2", "Gamma", "tnsnorq"},
                      {"index", "1", std::nullopt, {"onvif-source"}},
                      {"state", "1"}},
            .isProperty = true};
}

/** A container with what is taken from an event. */
inline EventContainer extracted(const FakeReceivedEvent &received,
                                const char *serialNumber = nullptr)
{
    const CHandle<event_t, event_free> event(newFakeEvent(received));
    EventContainer container;
    extractEvent(container, event.get(), serialNumber);
    return container;
}

/** The event with one item more. */
inline FakeReceivedEvent withItem(FakeReceivedEvent event, const FakeItem &item)
{
    event.items.push_back(item);
    return event;
}

/** Checks that nothing of the event library is left. */
class EventTranslationTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        resetFakeEventConsumer();
    }
    void TearDown() override { EXPECT_EQ(fakeLivingObjects(), FakeLivingObjects()); }

    LogCapture log;
};

} // namespace tovrel::test
