#include "device_fixture.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <memory>

using namespace device_test;
using testing::HasSubstr;

namespace {

std::string osInfo(const char *key)
{
    const std::unique_ptr<char, decltype(&g_free)> text(g_get_os_info(key), g_free);
    return text ? text.get() : "";
}

} // namespace

TEST_F(DeviceServices, TellTheSerialNumberOfTheSettings)
{
    startDaemon();
    EXPECT_EQ(property("SerialNumber"), "TEST-1");
}

TEST_F(DeviceServices, TellTheSerialNumberToOtherBusLibraries)
{
    startDaemon();
    EXPECT_EQ(
        outputOf({GDBUS, "call", "--system", "--dest", "com.norq.BasicDeviceInfo1", "--object-path",
                  "/com/norq/BasicDeviceInfo1", "--method", "org.freedesktop.DBus.Properties.Get",
                  "com.norq.Configuration.Legacy", "SerialNumber"}),
        "(<'TEST-1'>,)\n");
}

TEST_F(DeviceServices, TellWhatTheSystemKnowsOfItself)
{
    startDaemon();
    utsname kernel{};
    ASSERT_EQ(uname(&kernel), 0);
    EXPECT_EQ(property("Model"), "A model");
    EXPECT_EQ(property("OperatingSystem"), osInfo("PRETTY_NAME"));
    EXPECT_EQ(property("FirmwareVersion"), osInfo("IMAGE_VERSION"));
    EXPECT_EQ(property("Kernel"), static_cast<const char *>(kernel.release));
    EXPECT_EQ(property("Architecture"), static_cast<const char *>(kernel.machine));
}

TEST_F(DeviceServices, TellAChangedSerialNumberFromTheNextQuestionOn)
{
    startDaemon();
    for (const char *serial : {"TEST-2", "TEST-3", "TEST-4"}) {
        configureDevice(std::string("[device]\nserial=") + serial + "\n");
        EXPECT_EQ(property("SerialNumber"), serial);
    }
}

TEST_F(DeviceServices, HaveASerialNumberWithoutSettings)
{
    configureDevice("");
    startDaemon();
    EXPECT_THAT(property("SerialNumber"), testing::Not(testing::IsEmpty()));
}

TEST_F(DeviceServices, DoNotLetASerialNumberBeSet)
{
    startDaemon();
    test_support::ChildProcess tool({BUSCTL, "--system", "set-property",
                                     "com.norq.BasicDeviceInfo1", "/com/norq/BasicDeviceInfo1",
                                     "com.norq.Configuration.Legacy", "SerialNumber", "s", "X"});
    EXPECT_EQ(tool.waitForExit(test_support::DEADLINE), 1);
    EXPECT_THAT(tool.standardError(), HasSubstr("is not writable"));
    EXPECT_EQ(property("SerialNumber"), "TEST-1");
}
