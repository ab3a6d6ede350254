/** The daemon of the device services on a private bus, with settings files of the test's own. */
#pragma once

#include "support/child_process.h"
#include "support/private_bus.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace device_test {

/** Output of a tool that ended with status 0; otherwise the test fails. */
std::string outputOf(const std::vector<std::string> &command);

/** A property of the device's object, without quotes, as busctl tells it. */
std::string property(const std::string &name);

/** The answer of GetDefaultStatus as busctl tells it, on one line. */
std::string defaultStatus();

/** The value of a key in that answer; "(missing)" without it. */
std::string statusValue(const std::string &key);

/** Bus and daemon. */
class DeviceServices : public testing::Test {
protected:
    DeviceServices();
    void TearDown() override;

    /** Starts the daemon and waits until both its names can be called. */
    void startDaemon();
    /** Writes the settings file of the device. */
    void configureDevice(const std::string &content);
    /** Writes the settings file of the MQTT client. */
    void configureMqtt(const std::string &content);
    /** Environment of the daemon: its settings files, and its log on standard error. */
    [[nodiscard]] std::vector<std::string> environment() const;

    test_support::PrivateBus bus;
    std::unique_ptr<test_support::ChildProcess> daemon;
};

} // namespace device_test
