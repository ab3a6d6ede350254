#include "device_fixture.h"
#include "support/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace device_test;

namespace {

/** A folder with service files that start the daemon, whichever of its names is called. */
class ServiceFolder {
public:
    ServiceFolder()
    {
        for (const char *name : {"com.norq.BasicDeviceInfo1", "com.norq.MQTTMessagingService1"}) {
            std::ofstream(folder.file(std::string(name) + ".service"))
                << "[D-BUS Service]\nName=" << name << "\nExec=" DEVICED "\n";
        }
    }

    [[nodiscard]] const std::string &path() const { return folder.path(); }

private:
    test_support::TempDirectory folder;
};

} // namespace

TEST(Activation, ByTheNameOfTheDeviceBringsBothServices)
{
    const ServiceFolder services;
    const test_support::PrivateBus bus({services.path()});
    EXPECT_THAT(property("SerialNumber"), testing::Not(testing::IsEmpty()));
    EXPECT_EQ(statusValue("connected"), "unknown");
}

TEST(Activation, ByTheNameOfTheMqttClientBringsBothServices)
{
    const ServiceFolder services;
    const test_support::PrivateBus bus({services.path()});
    EXPECT_EQ(statusValue("connected"), "unknown");
    EXPECT_THAT(property("SerialNumber"), testing::Not(testing::IsEmpty()));
}

TEST(Activation, ByBothNamesAtOnceAnswersBoth)
{
    const ServiceFolder services;
    const test_support::PrivateBus bus({services.path()});
    test_support::ChildProcess first({BUSCTL, "--system", "get-property",
                                      "com.norq.BasicDeviceInfo1", "/com/norq/BasicDeviceInfo1",
                                      "com.norq.Configuration.Legacy", "SerialNumber"});
    test_support::ChildProcess second({BUSCTL, "--system", "call", "com.norq.MQTTMessagingService1",
                                       "/com/norq/MQTTMessagingService1",
                                       "com.norq.MQTTMessagingService1", "GetDefaultStatus"});
    EXPECT_EQ(first.waitForExit(test_support::DEADLINE), 0) << first.standardError();
    EXPECT_EQ(second.waitForExit(test_support::DEADLINE), 0) << second.standardError();
}
