/** An event producer handler on the faked event service. */
#pragma once

#include "fakes/call_record.h"
#include "fakes/fake_event.h"
#include "mqtt/event_producer_handler.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <optional>

namespace tovrel::test {

/** Sees to it that nothing of the event service leaks. */
class EventProducerHandlerTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        resetFakeEvents();
    }

    void TearDown() override
    {
        handler.reset();
        EXPECT_EQ(fakeEvents().livingProducers, 0);
        EXPECT_EQ(fakeEvents().livingDeclarations, 0);
        EXPECT_EQ(fakeEvents().livingEvents, 0);
    }

    EventProducerHandler &make()
    {
        handler.emplace();
        return *handler;
    }

    /** A handler with the generic event as id 0, and the record of its calls emptied. */
    EventProducerHandler &started()
    {
        make().start();
        resetCalls();
        return *handler;
    }

    LogCapture log;
    std::optional<EventProducerHandler> handler;
};

} // namespace tovrel::test
