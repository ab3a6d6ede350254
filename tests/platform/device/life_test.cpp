#include "device_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace device_test;
using testing::HasSubstr;

namespace {

/** The elements of introspection data, one an entry, without comments and white space. */
std::vector<std::string> elementsOf(const std::string &xml, const std::string &interface)
{
    std::vector<std::string> elements;
    std::istringstream lines(xml);
    bool isInside = false;
    for (std::string line; std::getline(lines, line);) {
        line.erase(0, line.find_first_not_of(' '));
        isInside = isInside || line.find("<interface name=\"" + interface + "\"") == 0;
        if (isInside && line.starts_with("<") && !line.starts_with("<!")) {
            // Both ways of ending an element without content.
            const auto end = line.find("></");
            elements.push_back(end == std::string::npos ? line : line.substr(0, end) + "/>");
        }
        isInside = isInside && !line.starts_with("</interface>");
    }
    return elements;
}

std::string readFile(const std::string &path)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

struct InterfaceCase {
    const char *name;
    const char *path;
    const char *interface;
};

std::ostream &operator<<(std::ostream &out, const InterfaceCase &tested)
{
    return out << tested.name;
}

class InterfaceOnTheBus : public DeviceServices,
                          public testing::WithParamInterface<InterfaceCase> {};

} // namespace

TEST_P(InterfaceOnTheBus, IsTheOneThatIsDescribed)
{
    const InterfaceCase &tested = GetParam();
    startDaemon();
    const std::string live =
        outputOf({GDBUS, "introspect", "--system", "--xml", "--dest",
                  std::string("com.norq.") + tested.name, "--object-path", tested.path});
    const std::string described =
        readFile(std::string(INTERFACES "/com.norq.") + tested.name + ".xml");
    const auto elements = elementsOf(described, tested.interface);
    EXPECT_GE(elements.size(), 4U);
    EXPECT_EQ(elementsOf(live, tested.interface), elements);
}

INSTANTIATE_TEST_SUITE_P(
    Interfaces, InterfaceOnTheBus,
    testing::Values(InterfaceCase{"BasicDeviceInfo1", "/com/norq/BasicDeviceInfo1",
                                  "com.norq.Configuration.Legacy"},
                    InterfaceCase{"MQTTMessagingService1", "/com/norq/MQTTMessagingService1",
                                  "com.norq.MQTTMessagingService1"}),
    [](const auto &tested) { return tested.param.name; });

TEST_F(DeviceServices, EndWithStatus0WhenAskedTo)
{
    startDaemon();
    daemon->signal(SIGINT);
    EXPECT_EQ(daemon->waitForExit(test_support::DEADLINE), 0) << daemon->standardError();
    startDaemon();
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForExit(test_support::DEADLINE), 0) << daemon->standardError();
}

TEST_F(DeviceServices, EndWithStatus1AndAnErrorWhenTheBusGoesAway)
{
    startDaemon();
    bus.stop();
    EXPECT_EQ(daemon->waitForExit(test_support::DEADLINE), 1);
    EXPECT_THAT(daemon->standardError(),
                HasSubstr("norq-deviced: err: The system bus is gone, the device services end\n"));
}

TEST_F(DeviceServices, EndWithStatus1AndAnErrorWithoutABus)
{
    bus.stop();
    test_support::ChildProcess lonely({DEVICED}, environment());
    EXPECT_EQ(lonely.waitForExit(test_support::DEADLINE), 1);
    EXPECT_THAT(lonely.standardError(),
                HasSubstr("norq-deviced: err: The device services end: connecting to the bus"));
}

TEST_F(DeviceServices, DoNotRunTwice)
{
    startDaemon();
    test_support::ChildProcess second({DEVICED}, environment());
    EXPECT_EQ(second.waitForExit(test_support::DEADLINE), 1);
    EXPECT_THAT(second.standardError(),
                HasSubstr("norq-deviced: err: The device services end: taking the name"));
    EXPECT_EQ(property("SerialNumber"), "TEST-1");
}

TEST_F(DeviceServices, LogAWrongSettingOnceAndNotForEachQuestion)
{
    configureMqtt("[broker]\nport=none\n");
    // Old enough for its times to tell every change.
    std::filesystem::last_write_time(bus.folder().file("mqtt.conf"),
                                     std::filesystem::file_time_type::clock::now() -
                                         std::chrono::hours(1));
    startDaemon();
    const auto warnings = [&] {
        const std::string log = daemon->standardError();
        int count = 0;
        for (auto at = log.find("port=none"); at != std::string::npos;
             at = log.find("port=none", at + 1)) {
            ++count;
        }
        return count;
    };
    // Until the file's change is long enough ago, questions read it again.
    int before = 0;
    ASSERT_TRUE(test_support::waitUntil([&] {
        before = warnings();
        EXPECT_EQ(statusValue("port"), "1883");
        return before > 0 && warnings() == before;
    }));
    for (int question = 0; question < 5; ++question) {
        EXPECT_EQ(statusValue("port"), "1883");
    }
    EXPECT_EQ(warnings(), before);
}
