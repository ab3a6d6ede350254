#include "settings/device_identity.h"

#include "support/log_capture.h"
#include "support/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

namespace {

using norq::deviceModel;
using norq::serialNumber;
using test_support::LogCapture;

/** Sources of which none exists at first. */
class DeviceIdentity : public testing::Test {
protected:
    void configure(const std::string &lines)
    {
        std::ofstream(sources.settingsFile, std::ios::binary) << "[device]\n" << lines;
    }

    void provide(std::size_t firmwareFile, const std::string &text, mode_t mode = 0444)
    {
        const std::string &path = sources.firmwareFiles.at(firmwareFile);
        std::ofstream(path, std::ios::binary) << text;
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
    }

    test_support::TempDirectory directory;
    LogCapture log;
    norq::SerialSources sources{
        .settingsFile = directory.file("device.conf"),
        .firmwareFiles = {directory.file("tree"), directory.file("dmi"), directory.file("board")},
        .machineId = [] { return std::string("from-machine-id"); }};
};

struct SerialCase {
    const char *name;
    std::string given;
    std::string serial;
};

std::ostream &operator<<(std::ostream &out, const SerialCase &tested)
{
    return out << tested.name;
}

class SerialText : public testing::TestWithParam<SerialCase> {};

struct PlaceholderCase {
    const char *name;
    std::string text;
    bool isPlaceholder;
};

std::ostream &operator<<(std::ostream &out, const PlaceholderCase &tested)
{
    return out << tested.name;
}

class FirmwareText : public testing::TestWithParam<PlaceholderCase> {};

} // namespace

TEST_F(DeviceIdentity, TakesTheSerialNumberOfTheSettingsFileFirst)
{
    configure("serial=CONFIGURED-1\n");
    provide(0, "TREE-1");
    EXPECT_EQ(serialNumber(sources), "CONFIGURED-1");
    EXPECT_EQ(log.count(0, ""), 0);
}

TEST_F(DeviceIdentity, TakesTheSerialNumberOfTheDeviceTreeBeforeThatOfDmi)
{
    provide(0, std::string("TREE-1\0", 7));
    provide(1, "DMI-1\n");
    EXPECT_EQ(serialNumber(sources), "TREE-1");
    EXPECT_EQ(log.count(0, ""), 0);
}

TEST_F(DeviceIdentity, PassesOverAPlaceholderOfTheFirmware)
{
    provide(0, "To be filled by O.E.M.\n");
    provide(1, "0\n");
    provide(2, "BOARD-1\n");
    EXPECT_EQ(serialNumber(sources), "BOARD-1");
}

TEST_F(DeviceIdentity, PassesOverAFirmwareFileThatNotEveryServiceMayRead)
{
    provide(0, "TREE-1", 0400);
    provide(1, "DMI-1", 0440);
    EXPECT_EQ(serialNumber(sources), "from-machine-id");
}

TEST_F(DeviceIdentity, PassesOverAFolderInTheFirmwaresPlace)
{
    std::filesystem::create_directory(sources.firmwareFiles[0]);
    provide(1, "DMI-1");
    EXPECT_EQ(serialNumber(sources), "DMI-1");
}

TEST_F(DeviceIdentity, FallsBackToTheMachineId)
{
    EXPECT_EQ(serialNumber(sources), "from-machine-id");
}

TEST_F(DeviceIdentity, IsUnknownWithoutAnySource)
{
    sources.machineId = [] { return std::string(); };
    EXPECT_EQ(serialNumber(sources), "unknown");
}

TEST_F(DeviceIdentity, ReadsNoMoreOfAFirmwareFileThanItNeeds)
{
    provide(0, std::string(1'000'000, 'a') + "b");
    provide(1, "b" + std::string(1'000'000, 'a'));
    EXPECT_EQ(serialNumber(sources), "b" + std::string(norq::MAX_SERIAL_LENGTH - 1, 'a'));
}

TEST_F(DeviceIdentity, WarnsOfAConfiguredSerialNumberThatHadToBeChanged)
{
    configure("serial=A/B+C#\n");
    EXPECT_EQ(serialNumber(sources), "A-B-C-");
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, sources.settingsFile + ": serial=A/B+C# holds"), 1);
}

TEST_F(DeviceIdentity, WarnsOfAnEmptyConfiguredSerialNumberAndLooksElsewhere)
{
    configure("serial=\n");
    provide(0, "TREE-1");
    EXPECT_EQ(serialNumber(sources), "TREE-1");
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "serial is empty"), 1);
}

TEST_F(DeviceIdentity, WarnsOfASettingsFileThatIsNoSettingsFileAndLooksElsewhere)
{
    std::ofstream(sources.settingsFile) << "serial\n";
    provide(0, "TREE-1");
    EXPECT_EQ(serialNumber(sources), "TREE-1");
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, sources.settingsFile + " cannot be read"), 1);
}

TEST_F(DeviceIdentity, TakesASettingsFileWithoutSerialNumberForNone)
{
    configure("model=M\n");
    EXPECT_EQ(serialNumber(sources), "from-machine-id");
    EXPECT_EQ(log.count(0, ""), 0);
}

TEST_F(DeviceIdentity, TakesTheModelOfTheSettingsFileFirst)
{
    configure("model=Gr\xc3\xb6\xc3\x9f"
              "e/1 + 2\n");
    provide(0, "of the tree");
    EXPECT_EQ(deviceModel(sources.settingsFile, sources.firmwareFiles), "Gr\xc3\xb6\xc3\x9f"
                                                                        "e/1 + 2");
}

TEST_F(DeviceIdentity, TakesTheModelOfTheFirmware)
{
    provide(0, "System Product Name\n");
    provide(1, "A model\n");
    EXPECT_EQ(deviceModel(sources.settingsFile, sources.firmwareFiles), "A model");
}

TEST_F(DeviceIdentity, ShowsAModelAsOneLineOfUtf8)
{
    provide(0, "A\nmodel\xff");
    EXPECT_EQ(deviceModel(sources.settingsFile, sources.firmwareFiles), "A model\xef\xbf\xbd");
}

TEST_F(DeviceIdentity, HasNoModelWithoutASource)
{
    EXPECT_EQ(deviceModel(sources.settingsFile, sources.firmwareFiles), "");
}

TEST(SystemIdentity, IsStableAndFitsIntoATopic)
{
    const std::string serial = norq::serialNumber();
    EXPECT_FALSE(serial.empty());
    EXPECT_LE(serial.size(), norq::MAX_SERIAL_LENGTH);
    EXPECT_EQ(serial, norq::sanitiseSerial(serial));
    EXPECT_EQ(serial, norq::serialNumber());
}

TEST(SystemIdentity, DoesNotGiveTheMachineIdAway)
{
    std::string machineId;
    std::ifstream("/etc/machine-id") >> machineId;
    const std::string derived = norq::systemSerialSources().machineId();
    // A machine that was never started has none.
    EXPECT_EQ(derived.size(), machineId.size() == 32 ? 32U : 0U);
    EXPECT_THAT(derived, testing::MatchesRegex("[0-9a-f]*"));
    EXPECT_TRUE(machineId.empty() || derived != machineId);
}

TEST(SystemIdentity, HasItsSettingsFileWhereTheEnvironmentSays)
{
    const test_support::TempDirectory directory;
    std::ofstream(directory.file("device.conf")) << "[device]\nserial=ELSEWHERE\n";
    ASSERT_EQ(norq::deviceSettingsFile(), "/etc/norq/device.conf");
    g_setenv("NORQ_DEVICE_CONF", directory.file("device.conf").c_str(), TRUE);
    EXPECT_EQ(norq::serialNumber(), "ELSEWHERE");
    g_unsetenv("NORQ_DEVICE_CONF");
}

TEST_P(SerialText, IsMadeFitForATopic)
{
    EXPECT_EQ(norq::sanitiseSerial(GetParam().given), GetParam().serial);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SerialText,
    testing::Values(SerialCase{"Plain", "AB-12_3.4:5", "AB-12_3.4:5"},
                    SerialCase{"BlanksAround", " \t12 34\r\n", "12 34"},
                    SerialCase{"NulAtTheEnd", std::string("12\0\0", 4), "12"},
                    SerialCase{"NulInside", std::string("1\0002", 3), "1-2"},
                    SerialCase{"TopicCharacters", "a/b+c#d", "a-b-c-d"},
                    SerialCase{"ControlCharacters",
                               "a\x01"
                               "b\x7f"
                               "c",
                               "a-b-c"},
                    SerialCase{"NotAscii", "a\xc3\xbc", "a--"},
                    SerialCase{"Longest", std::string(64, 'x'), std::string(64, 'x')},
                    SerialCase{"TooLong", std::string(65, 'x'), std::string(64, 'x')},
                    SerialCase{"BlankAtTheCut", std::string(63, 'x') + " y", std::string(63, 'x')},
                    SerialCase{"Empty", "", ""}, SerialCase{"OnlyBlanks", " \n", ""}),
    [](const auto &tested) { return tested.param.name; });

TEST_P(FirmwareText, IsToldFromAPlaceholder)
{
    EXPECT_EQ(norq::isPlaceholder(GetParam().text), GetParam().isPlaceholder);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, FirmwareText,
    testing::Values(PlaceholderCase{"Empty", "", true}, PlaceholderCase{"Blank", " \n", true},
                    PlaceholderCase{"Usual", "To be filled by O.E.M.\n", true},
                    PlaceholderCase{"UsualShouted", "TO BE FILLED BY O.E.M.", true},
                    PlaceholderCase{"DefaultString", "Default string\n", true},
                    PlaceholderCase{"None", "None", true}, PlaceholderCase{"Zero", "0", true},
                    PlaceholderCase{"Zeros", "00000000", true},
                    PlaceholderCase{"Crosses", "XXXXXXXX", true},
                    PlaceholderCase{"NotSpecified", "Not Specified", true},
                    PlaceholderCase{"SystemSerial", "System Serial Number", true},
                    PlaceholderCase{"Digits", "0123456789", true},
                    PlaceholderCase{"RealNumber", "100000", false},
                    PlaceholderCase{"RealText", "None-1", false},
                    PlaceholderCase{"BeginsLikeOne", "Default string 2", false}),
    [](const auto &tested) { return tested.param.name; });
