/**
 * What the faked C libraries were asked to do: one list for all of them, so that a test sees the
 * order across libraries. Any thread.
 */
#pragma once

#include <string>
#include <vector>

namespace tovrel::test {

/** Empties the list and forgets the failures asked for. */
void resetCalls();

/** Notes a call, as "function argument argument ...", unless recording is switched off. */
void recordCall(const std::string &call);

/** The calls since the last reset, in their order. */
std::vector<std::string> recordedCalls();

/** The calls whose text begins with one of `functions`. */
std::vector<std::string> recordedCalls(const std::vector<std::string> &functions);

/** Switches recording off for measurements, where the list would grow without bound. */
void setRecording(bool on);

/** Whether calls are recorded. */
bool isRecording();

/** Lets the `nth` next call (1 is the next one) of a function fail; 0 lets every call fail. */
void failCall(const std::string &function, unsigned int nth = 0);

/** For the fakes: counts a call of `function` and tells whether it is to fail. */
bool shallFail(const std::string &function);

} // namespace tovrel::test
