#include "core/sd_event_source.h"

#include "fakes/call_record.h"
#include "fakes/fake_sdbus.h"
#include "interfaces/exceptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

/** The source's four functions, called as GLib calls them. */
class SdEventSource : public ::testing::Test {
protected:
    SdEventSource()
    {
        FakeSdBus::instance().reset();
        id = attachSdEventSource(bus.loop());
        source = g_main_context_find_source_by_id(nullptr, id);
        resetCalls();
    }

    ~SdEventSource() override
    {
        if (g_main_context_find_source_by_id(nullptr, id) != nullptr) {
            g_source_destroy(source);
        }
    }

    FakeSdBus &bus = FakeSdBus::instance();
    guint id;
    GSource *source;
};

TEST_F(SdEventSource, IsAttachedToTheDefaultContext)
{
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(g_source_get_context(source), g_main_context_default());
    EXPECT_EQ(bus.loopReferences, 1);
}

TEST_F(SdEventSource, PollsTheLoopsDescriptorForInputErrorAndHangUp)
{
    ASSERT_EQ(g_slist_length(source->poll_fds), 1U);
    const auto *record = static_cast<const GPollFD *>(source->poll_fds->data);
    EXPECT_EQ(record->fd, 0);
    EXPECT_EQ(record->events, 25);
}

TEST_F(SdEventSource, IsReadyAtPreparationWhenTheLoopSaysSo)
{
    gint timeout = 77;
    for (const int result : {1, 2}) {
        bus.answer("sd_event_prepare", result);
        EXPECT_EQ(source->source_funcs->prepare(source, &timeout), TRUE) << result;
    }
    for (const int result : {0, -EBUSY}) {
        bus.answer("sd_event_prepare", result);
        EXPECT_EQ(source->source_funcs->prepare(source, &timeout), FALSE) << result;
    }
    EXPECT_EQ(timeout, 77) << "the time-out is left untouched";
}

TEST_F(SdEventSource, ChecksWithoutEverBlocking)
{
    bus.answer("sd_event_wait", 1);
    EXPECT_EQ(source->source_funcs->check(source), TRUE);
    for (const int result : {0, -ESTALE}) {
        bus.answer("sd_event_wait", result);
        EXPECT_EQ(source->source_funcs->check(source), FALSE) << result;
    }
    EXPECT_THAT(recordedCalls(),
                ElementsAre("sd_event_wait 0", "sd_event_wait 0", "sd_event_wait 0"));
}

TEST_F(SdEventSource, StaysAfterASuccessfulDispatch)
{
    bus.answer("sd_event_dispatch", 1);
    EXPECT_EQ(source->source_funcs->dispatch(source, nullptr, nullptr), G_SOURCE_CONTINUE);
}

TEST_F(SdEventSource, IsRemovedWhenDispatchingReportsTheEndOrAnError)
{
    for (const int result : {0, -ESTALE}) {
        bus.answer("sd_event_dispatch", result);
        EXPECT_EQ(source->source_funcs->dispatch(source, nullptr, nullptr), G_SOURCE_REMOVE)
            << result;
    }
}

TEST_F(SdEventSource, DisappearsFromTheLoopAfterAFailedDispatch)
{
    bus.answer("sd_event_prepare", 1);
    bus.answer("sd_event_dispatch", -ESTALE);

    EXPECT_TRUE(g_main_context_iteration(nullptr, FALSE));
    EXPECT_EQ(g_main_context_find_source_by_id(nullptr, id), nullptr);
    EXPECT_EQ(bus.loopReferences, 0);

    resetCalls();
    g_main_context_iteration(nullptr, FALSE);
    EXPECT_THAT(recordedCalls(), IsEmpty()) << "the bus is not served any more";
}

TEST_F(SdEventSource, GivesItsReferenceToTheLoopBackAtTheEnd)
{
    g_source_destroy(source);
    EXPECT_THAT(recordedCalls(), ElementsAre("sd_event_unref"));
    EXPECT_EQ(bus.loopReferences, 0);
}

TEST_F(SdEventSource, IsNotCreatedForALoopWithoutDescriptor)
{
    bus.answer("sd_event_get_fd", -ECHILD);
    EXPECT_THROW(attachSdEventSource(bus.loop()), SdBusException);
    EXPECT_EQ(bus.loopReferences, 1) << "only that of the first source";
}

} // namespace

} // namespace tovrel::test
