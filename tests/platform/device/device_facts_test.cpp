#include "device/device_facts.h"

#include "support/temp_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>

using norq::device::FactsReader;
using norq::device::FileStamp;

namespace {

/** Settings files of the test's own, named to the process for its life. */
class Facts : public testing::Test {
protected:
    Facts()
    {
        // One thread, as GoogleTest runs it.
        setenv("NORQ_DEVICE_CONF", directory.file("device.conf").c_str(),
               1); // NOLINT(concurrency-mt-unsafe)
        setenv("NORQ_MQTT_CONF", directory.file("mqtt.conf").c_str(),
               1); // NOLINT(concurrency-mt-unsafe)
    }
    ~Facts() override
    {
        unsetenv("NORQ_DEVICE_CONF"); // NOLINT(concurrency-mt-unsafe)
        unsetenv("NORQ_MQTT_CONF");   // NOLINT(concurrency-mt-unsafe)
    }

    void write(const char *name, const std::string &content)
    {
        std::ofstream(directory.file(name), std::ios::binary) << content;
    }

    test_support::TempDirectory directory;
};

} // namespace

TEST_F(Facts, FollowAFileThatComesChangesInPlaceAndGoes)
{
    FactsReader reader;
    const std::string before = reader.current().serialNumber;
    write("device.conf", "[device]\nserial=ONE\n");
    EXPECT_EQ(reader.current().serialNumber, "ONE");
    write("device.conf", "[device]\nserial=TWO\n"); // same size, same file, at once
    EXPECT_EQ(reader.current().serialNumber, "TWO");
    std::remove(directory.file("device.conf").c_str());
    EXPECT_EQ(reader.current().serialNumber, before);
}

TEST_F(Facts, FollowTheSettingsOfTheMqttClient)
{
    FactsReader reader;
    write("mqtt.conf", "[broker]\nport=1\n");
    EXPECT_EQ(reader.current().mqtt.port, 1);
    write("mqtt.conf", "[broker]\nport=2\n");
    EXPECT_EQ(reader.current().mqtt.port, 2);
}

TEST_F(Facts, AreNotSureOfAFileThatWasJustChanged)
{
    write("device.conf", "[device]\nserial=ONE\n");
    const FileStamp stamp = FileStamp::of(directory.file("device.conf"));
    EXPECT_FALSE(FileStamp::of(directory.file("device.conf")).provesSameAs(stamp));
}

TEST_F(Facts, AreSureOfAnAbsentFile)
{
    const FileStamp stamp = FileStamp::of(directory.file("device.conf"));
    EXPECT_TRUE(FileStamp::of(directory.file("device.conf")).provesSameAs(stamp));
}

TEST_F(Facts, AreSureOfAFileThatWasChangedLongAgo)
{
    const FileStamp stamp = FileStamp::of("/etc/os-release");
    EXPECT_TRUE(FileStamp::of("/etc/os-release").provesSameAs(stamp));
    EXPECT_FALSE(FileStamp::of("/etc/passwd").provesSameAs(stamp));
}
