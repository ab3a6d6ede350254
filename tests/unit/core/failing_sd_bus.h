/** Lets functions of sd-bus fail on the thread of the service, while a client uses the real ones.
 */
#pragma once

#include <string>

namespace tovrel::test {

/**
 * Lets the `number`th call (from 1) of a function on this thread return `result` instead of doing
 * its work. Other threads are not touched. One function at a time; forgotten once it has failed.
 */
void failSdBus(const std::string &function, int result, int number = 1);

/** Whether a failure was asked for and has not come. */
bool sdBusFailurePending();

} // namespace tovrel::test
