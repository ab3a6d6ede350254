/** Mock of the sender of device events. */
#pragma once

#include "interfaces/base_event_producer_handler.h"

#include <gmock/gmock.h>

#include <string>

namespace tovrel::test {

class MockEventProducerHandler : public BaseEventProducerHandler {
public:
    MOCK_METHOD(void, start, (), (override));
    MOCK_METHOD(void, declareStatelessEvent, (const std::string &, bool), (override));
    MOCK_METHOD(void, declareStatefulEvent, (const std::string &, bool), (override));
    MOCK_METHOD(void, sendStatelessEvent, (const std::string &, bool, const char *), (override));
    MOCK_METHOD(void, sendStatefulEvent, (const std::string &, bool, const char *), (override));
    MOCK_METHOD(void, undeclareAllEvents, (), (override));
};

} // namespace tovrel::test
