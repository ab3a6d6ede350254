/** The real daemon on a private bus. */
#pragma once

#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/private_bus.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace event_test {

/** Whether the event service has its name on the bus that is announced as the system bus. */
bool serviceIsOnBus();

/** Starts the daemon and waits until it can be called. Its log lines are its standard error. */
std::unique_ptr<test_support::ChildProcess> startDaemon();

/** How often `part` is in a text. */
int occurrences(const std::string &text, const std::string &part);

/** Bus and daemon; log lines of the test's process are collected. */
class EventServiceTest : public testing::Test {
protected:
    EventServiceTest() : daemon(startDaemon()) {}

    /** Kills the daemon as a crash would, and waits until the bus knows. */
    void crashDaemon()
    {
        daemon->kill();
        daemonLogs.push_back(daemon->standardError());
        ASSERT_TRUE(test_support::waitUntil([] { return !serviceIsOnBus(); }));
    }
    /** Starts the daemon again. */
    void restartDaemon() { daemon = startDaemon(); }

    void TearDown() override
    {
        EXPECT_EQ(logs.count(G_LOG_LEVEL_CRITICAL, ""), 0);
        if (daemon->isRunning()) {
            daemon->signal(SIGCONT);
            daemon->signal(SIGTERM);
            EXPECT_EQ(daemon->waitForExit(test_support::DEADLINE), 0) << daemon->standardError();
        }
    }

    test_support::PrivateBus bus;
    test_support::LogCapture logs;
    std::unique_ptr<test_support::ChildProcess> daemon;
    std::vector<std::string> daemonLogs; // of the daemons before
};

} // namespace event_test
