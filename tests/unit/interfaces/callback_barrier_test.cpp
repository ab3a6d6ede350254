#include "interfaces/callback_barrier.h"

#include "fakes/log_capture.h"
#include "interfaces/c_handles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

/** A real main loop. Whatever goes wrong, it ends after a deadline, and the test fails. */
class CallbackBarrier : public ::testing::Test {
protected:
    CallbackBarrier()
    {
        deadline = g_timeout_add_seconds(
            20,
            [](gpointer self) -> gboolean {
                ADD_FAILURE() << "the main loop was not quit";
                auto *test = static_cast<CallbackBarrier *>(self);
                test->deadline = 0;
                g_main_loop_quit(test->loop.get());
                return G_SOURCE_REMOVE;
            },
            this);
    }

    ~CallbackBarrier() override
    {
        if (deadline != 0) {
            g_source_remove(deadline);
        }
    }

    /** The message of what runMainLoop() throws; empty when it returns. */
    std::string runAndCatch()
    {
        try {
            runMainLoop(loop.get());
        } catch (const std::exception &error) {
            return error.what();
        }
        return {};
    }

    CHandle<GMainLoop, g_main_loop_unref> loop{g_main_loop_new(nullptr, FALSE)};
    guint deadline;
};

gboolean throwFirst(gpointer)
{
    return carryToMainLoop(G_SOURCE_REMOVE,
                           []() -> gboolean { throw std::runtime_error("first"); });
}

gboolean throwSecond(gpointer)
{
    return carryToMainLoop(G_SOURCE_REMOVE, []() -> gboolean { throw std::logic_error("second"); });
}

gboolean quitLoop(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_REMOVE;
}

TEST_F(CallbackBarrier, HandsOnWhatTheBodyReturns)
{
    EXPECT_EQ(carryToMainLoop(1, [] { return 2; }), 2);
    g_idle_add(quitLoop, loop.get());
    EXPECT_EQ(runAndCatch(), "");
}

TEST_F(CallbackBarrier, GivesTheCallerTheFallbackAfterAnException)
{
    EXPECT_EQ(carryToMainLoop(1, []() -> int { throw std::runtime_error("gone"); }), 1);
    EXPECT_EQ(runAndCatch(), "gone");
}

TEST_F(CallbackBarrier, EndsTheLoopAndThrowsTheExceptionThere)
{
    g_idle_add(throwFirst, nullptr);
    EXPECT_EQ(runAndCatch(), "first");
}

TEST_F(CallbackBarrier, KeepsTheTypeOfTheException)
{
    g_idle_add(throwSecond, nullptr);
    EXPECT_THROW(runMainLoop(loop.get()), std::logic_error);
}

TEST_F(CallbackBarrier, CarriesWhatIsNoStandardExceptionToo)
{
    EXPECT_EQ(carryToMainLoop(0, []() -> int { throw 7; }), 0);
    EXPECT_THROW(runMainLoop(loop.get()), int);
}

TEST_F(CallbackBarrier, KeepsTheFirstOfSeveralExceptions)
{
    // Both callbacks run in one turn of the loop, in the order of their priorities.
    g_idle_add_full(G_PRIORITY_DEFAULT, throwFirst, nullptr, nullptr);
    g_idle_add_full(G_PRIORITY_DEFAULT, throwSecond, nullptr, nullptr);
    EXPECT_EQ(runAndCatch(), "first");
}

TEST_F(CallbackBarrier, ThrowsAnExceptionOnce)
{
    g_idle_add(throwFirst, nullptr);
    EXPECT_EQ(runAndCatch(), "first");

    g_idle_add(quitLoop, loop.get());
    EXPECT_EQ(runAndCatch(), "") << "the next run starts clean";
}

TEST_F(CallbackBarrier, ThrowsWhatWasCarriedBeforeTheLoopWithoutRunningIt)
{
    throwFirst(nullptr);
    bool ran = false;
    const guint idle = g_idle_add(
        [](gpointer flag) -> gboolean {
            *static_cast<bool *>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &ran);

    EXPECT_EQ(runAndCatch(), "first");
    EXPECT_FALSE(ran);
    g_source_remove(idle);
}

TEST_F(CallbackBarrier, CarriesFromAnyThread)
{
    std::thread other;
    struct Context {
        std::thread *other;
    } context{&other};
    g_idle_add(
        [](gpointer data) -> gboolean {
            *static_cast<Context *>(data)->other = std::thread([] { throwFirst(nullptr); });
            return G_SOURCE_REMOVE;
        },
        &context);

    EXPECT_EQ(runAndCatch(), "first");
    other.join();
}

class LoggingBarrier : public ::testing::Test {
protected:
    LogCapture log;
};

TEST_F(LoggingBarrier, RunsTheBody)
{
    bool ran = false;
    logAndCarryOn("anything", [&ran] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LoggingBarrier, LogsAnExceptionWithTheNameOfTheCallback)
{
    logAndCarryOn("message callback", [] { throw std::runtime_error("no memory"); });
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Exception in message callback: no memory"}));
}

TEST_F(LoggingBarrier, LogsWhatIsNoStandardException)
{
    logAndCarryOn("message callback", [] { throw 7; });
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Unknown exception in message callback"}));
}

} // namespace

} // namespace tovrel::test
