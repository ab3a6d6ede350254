/**
 * Lets functions of sd-bus fail, or give what no message can hold, on the thread of the service,
 * while a client uses the real ones.
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

/**
 * Lets the `number`th reading of a message (from 1) on this thread store `text` in its first field,
 * which has to be a text. sd-bus itself passes on no text that is not valid UTF-8. Other threads
 * are not touched; forgotten once it has happened.
 */
void replaceReadText(const std::string &text, int number = 1);

} // namespace tovrel::test
