#include "interfaces/log.h"

#include "fakes/log_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using ::testing::ElementsAre;

namespace tovrel::test {

namespace {

TEST(Log, HandsTheThreeLevelsToGlib)
{
    LogCapture log;
    tovrel_log(LOG_LEVEL_FAILURE, "%sa failure", LOG_PREFIX);
    tovrel_log(LOG_LEVEL_WARN, "%sa warning", LOG_PREFIX);
    tovrel_log(LOG_LEVEL_PROGRESS, "%sprogress", LOG_PREFIX);

    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "a failure"}, LogLine{16, "a warning"},
                                        LogLine{64, "progress"}));
}

TEST(Log, PutsNothingBeforeTheText)
{
    LogCapture log;
    tovrel_log(LOG_LEVEL_PROGRESS, "%s%s %d", LOG_PREFIX, "text with 100%", 5);
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "text with 100% 5"}));
}

TEST(Log, HasNoDomain)
{
    std::string domain = "unset";
    GLogFunc former = g_log_set_default_handler(
        [](const gchar *logDomain, GLogLevelFlags, const gchar *, gpointer data) {
            *static_cast<std::string *>(data) = logDomain == nullptr ? "none" : logDomain;
        },
        &domain);
    tovrel_log(LOG_LEVEL_PROGRESS, "%stext", LOG_PREFIX);
    g_log_set_default_handler(former, nullptr);
    EXPECT_EQ(domain, "none");
}

} // namespace

} // namespace tovrel::test
