#include "unit/core/dbus_fixture.h"

#include <algorithm>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

class SerialNumber : public DbusFixture {
protected:
    SerialNumber() { resetCalls(); }

    DbusHandler handler{&bridge};
};

TEST_F(SerialNumber, IsThePropertyOfTheDeviceInformationService)
{
    resetCalls();
    bus.property = "ACCC8E000000";

    EXPECT_EQ(handler.getSerialNumber(), "ACCC8E000000");
    EXPECT_THAT(recordedCalls(),
                ElementsAre("sd_bus_get_property_string com.norq.BasicDeviceInfo1 "
                            "/com/norq/BasicDeviceInfo1 com.norq.Configuration.Legacy "
                            "SerialNumber no-error"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(SerialNumber, MayBeEmpty)
{
    bus.property = "";

    EXPECT_EQ(handler.getSerialNumber(), "");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(SerialNumber, HasAFallbackWhenTheServiceIsAbsent)
{
    bus.answer("sd_bus_get_property_string", -EHOSTUNREACH);

    EXPECT_EQ(handler.getSerialNumber(), "no_serial");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "failed to call method!: No route to host"}));
}

TEST_F(SerialNumber, HasAFallbackWhenTheCallSucceedsWithoutAText)
{
    bus.property.reset();

    EXPECT_EQ(handler.getSerialNumber(), "no_serial");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "failed to call method!: Success"}));
}

class DeviceTopicPrefix : public DbusFixture {
protected:
    DeviceTopicPrefix() { resetCalls(); }

    /** What the handler finds, after which nothing that the call gave out may be left. */
    std::string lookUp()
    {
        std::string prefix = handler.getDeviceTopicPrefix();
        EXPECT_EQ(bus.replyReferences, 0) << "the reply is released";
        EXPECT_EQ(bus.errorsToFree, 0) << "the error record is freed";
        return prefix;
    }

    DbusHandler handler{&bridge};
};

TEST_F(DeviceTopicPrefix, IsAskedOfTheMessagingService)
{
    resetCalls();
    bus.replyEntries = {{"deviceTopicPrefix", "norq/ACCC8E000000"}};

    EXPECT_EQ(lookUp(), "norq/ACCC8E000000");
    EXPECT_THAT(recordedCalls(),
                ElementsAre("sd_bus_call_method com.norq.MQTTMessagingService1 "
                            "/com/norq/MQTTMessagingService1 com.norq.MQTTMessagingService1 "
                            "GetDefaultStatus (null)",
                            "sd_bus_message_enter_container a {ss}",
                            "sd_bus_message_enter_container e ss", "sd_bus_message_read ss",
                            "sd_bus_message_exit_container", "sd_bus_message_enter_container e ss",
                            "sd_bus_message_unref", "sd_bus_error_free"))
        << "the entry is left, the array is not";
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DeviceTopicPrefix, IsEmptyWithAWarningWhenTheCallFails)
{
    bus.answer("sd_bus_call_method", -EHOSTUNREACH);
    bus.errorMessage = "The name is not activatable";

    EXPECT_EQ(lookUp(), "");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{16, "Could not retrieve Device Topic Prefix: "
                                                    "The name is not activatable"}));
}

TEST_F(DeviceTopicPrefix, IsEmptyWithAWarningWhenTheErrorHasNoMessage)
{
    bus.answer("sd_bus_call_method", -EHOSTUNREACH);

    EXPECT_EQ(lookUp(), "");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{16, "Could not retrieve Device Topic Prefix: Unknown error"}));
}

TEST_F(DeviceTopicPrefix, IsEmptyWithoutItsKey)
{
    bus.replyEntries = {{"status", "connected"}, {"DeviceTopicPrefix", "a"}, {"deviceTopic", "b"}};

    EXPECT_EQ(lookUp(), "");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DeviceTopicPrefix, IsTheLastValueOfItsKey)
{
    bus.replyEntries = {
        {"deviceTopicPrefix", "first"}, {"status", "x"}, {"deviceTopicPrefix", "second"}};

    EXPECT_EQ(lookUp(), "second");
}

TEST_F(DeviceTopicPrefix, MayBeEmptyAlsoAfterAnotherValue)
{
    bus.replyEntries = {{"deviceTopicPrefix", "first"}, {"deviceTopicPrefix", ""}};

    EXPECT_EQ(lookUp(), "");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DeviceTopicPrefix, IsStillLookedForWhenTheArrayCannotBeOpened)
{
    bus.answer("sd_bus_message_enter_container a", -ENXIO);
    bus.replyEntries = {{"deviceTopicPrefix", "found"}};

    EXPECT_EQ(lookUp(), "found");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to open DBus array: No such device "
                                                     "or address"}));
}

TEST_F(DeviceTopicPrefix, IsEmptyWhenEntriesCannotBeEntered)
{
    bus.answer("sd_bus_message_enter_container e", -ENXIO);
    bus.replyEntries = {{"deviceTopicPrefix", "unreachable"}};

    EXPECT_EQ(lookUp(), "");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DeviceTopicPrefix, IsWhatWasFoundBeforeAnUnreadableEntry)
{
    bus.replyEntries = {
        {"deviceTopicPrefix", "before"}, {"damaged", ""}, {"deviceTopicPrefix", "after"}};
    bus.unreadableEntry = 1;

    EXPECT_EQ(lookUp(), "before");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Failed to read key-value pair"}));
}

TEST_F(DeviceTopicPrefix, IsLookedForInEveryEntryWhenEntriesCannotBeLeft)
{
    bus.answer("sd_bus_message_exit_container", -EBUSY);
    bus.replyEntries = {{"a", "b"}, {"deviceTopicPrefix", "found"}, {"c", "d"}};

    EXPECT_EQ(lookUp(), "found");
    const LogLine line{256, "Failed to exit container (variant): Device or resource busy"};
    EXPECT_THAT(log.take(), ElementsAre(line, line, line));
}

} // namespace

} // namespace tovrel::test
