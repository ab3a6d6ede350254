/** Mock of the service's presence on the system bus. */
#pragma once

#include "interfaces/base_dbus_handler.h"

#include <gmock/gmock.h>

#include <string>

namespace tovrel::test {

class MockDbusHandler : public BaseDbusHandler {
public:
    MOCK_METHOD(void, start, (), (override));
    MOCK_METHOD(int, handleSetMQTTToEventConfig, (sd_bus_message *, sd_bus_error *), (override));
    MOCK_METHOD(int, fillMQTTToEventConfigReply, (sd_bus_message *), (override));
    MOCK_METHOD(int, handleSetEventToMQTTConfig, (sd_bus_message *), (override));
    MOCK_METHOD(int, fillEventToMQTTConfigReply, (sd_bus_message *), (override));
    MOCK_METHOD(std::string, getSerialNumber, (), (override));
    MOCK_METHOD(std::string, getDeviceTopicPrefix, (), (override));
    MOCK_METHOD(bool, releaseNameAndQuit, (GMainLoop *), (override));
};

} // namespace tovrel::test
