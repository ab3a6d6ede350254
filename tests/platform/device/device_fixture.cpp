#include "device_fixture.h"

#include "event/core/bus_handles.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace device_test {

namespace {

/** Replaces a file whole: a reader sees the old or the new content. */
void writeFile(const std::string &path, const std::string &content)
{
    const std::string next = path + ".next";
    std::ofstream(next, std::ios::binary) << content;
    std::filesystem::permissions(next, std::filesystem::perms(0640));
    std::filesystem::rename(next, path);
}

bool isOnBus(const char *name)
{
    norq::event::Bus connection;
    const int opened = sd_bus_open_system(norq::event::Out(connection));
    return opened >= 0 && sd_bus_get_name_creds(connection.get(), name, 0, nullptr) >= 0;
}

} // namespace

std::string outputOf(const std::vector<std::string> &command)
{
    test_support::ChildProcess tool(command);
    EXPECT_EQ(tool.waitForExit(test_support::DEADLINE), 0) << tool.standardError();
    return tool.standardOutput();
}

std::string property(const std::string &name)
{
    const std::string output =
        outputOf({BUSCTL, "--system", "get-property", "com.norq.BasicDeviceInfo1",
                  "/com/norq/BasicDeviceInfo1", "com.norq.Configuration.Legacy", name});
    // s "text" and a newline
    EXPECT_EQ(output.substr(0, 3), "s \"");
    return output.size() < 5 ? "" : output.substr(3, output.size() - 5);
}

std::string defaultStatus()
{
    return outputOf({BUSCTL, "--system", "call", "com.norq.MQTTMessagingService1",
                     "/com/norq/MQTTMessagingService1", "com.norq.MQTTMessagingService1",
                     "GetDefaultStatus"});
}

std::string statusValue(const std::string &key)
{
    const std::string status = defaultStatus();
    const std::string start = "\"" + key + "\" \"";
    const auto at = status.find(start);
    if (at == std::string::npos) {
        return "(missing)";
    }
    const auto begin = at + start.size();
    return status.substr(begin, status.find('"', begin) - begin);
}

DeviceServices::DeviceServices()
{
    configureDevice("[device]\nserial=TEST-1\nmodel=A model\n");
}

void DeviceServices::TearDown()
{
    if (daemon && daemon->isRunning()) {
        daemon->signal(SIGTERM);
        EXPECT_EQ(daemon->waitForExit(test_support::DEADLINE), 0) << daemon->standardError();
    }
}

void DeviceServices::startDaemon()
{
    daemon = std::make_unique<test_support::ChildProcess>(std::vector<std::string>{DEVICED},
                                                          environment());
    // The name that is taken last.
    const bool isUp = test_support::waitUntil(
        [&] { return isOnBus("com.norq.MQTTMessagingService1") || !daemon->isRunning(); });
    if (!isUp || !daemon->isRunning()) {
        throw std::runtime_error("the daemon did not start: " + daemon->standardError());
    }
}

void DeviceServices::configureDevice(const std::string &content)
{
    writeFile(bus.folder().file("device.conf"), content);
}

void DeviceServices::configureMqtt(const std::string &content)
{
    writeFile(bus.folder().file("mqtt.conf"), content);
}

std::vector<std::string> DeviceServices::environment() const
{
    return {"NORQ_LOG_STDERR=1", "NORQ_DEVICE_CONF=" + bus.folder().file("device.conf"),
            "NORQ_MQTT_CONF=" + bus.folder().file("mqtt.conf")};
}

} // namespace device_test
