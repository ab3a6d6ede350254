#include "fakes/call_record.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>

namespace tovrel::test {

namespace {

struct Record {
    std::mutex mutex; // guards the other members
    std::vector<std::string> calls;
    std::map<std::string, unsigned int> failures; // calls until the failing one; 0: all fail
};

Record &record()
{
    static Record instance;
    return instance;
}

std::atomic<bool> recording = true;

} // namespace

void resetCalls()
{
    const std::lock_guard lock(record().mutex);
    record().calls.clear();
    record().failures.clear();
}

void recordCall(const std::string &call)
{
    if (!recording) {
        return;
    }
    const std::lock_guard lock(record().mutex);
    record().calls.push_back(call);
}

std::vector<std::string> recordedCalls()
{
    const std::lock_guard lock(record().mutex);
    return record().calls;
}

std::vector<std::string> recordedCalls(const std::vector<std::string> &functions)
{
    std::vector<std::string> calls = recordedCalls();
    std::erase_if(calls, [&](const std::string &call) {
        return std::none_of(functions.begin(), functions.end(), [&](const std::string &function) {
            return call == function || call.starts_with(function + " ");
        });
    });
    return calls;
}

void setRecording(bool on)
{
    recording = on;
}

bool isRecording()
{
    return recording;
}

void failCall(const std::string &function, unsigned int nth)
{
    const std::lock_guard lock(record().mutex);
    record().failures[function] = nth;
}

bool shallFail(const std::string &function)
{
    if (!recording) {
        return false;
    }
    const std::lock_guard lock(record().mutex);
    const auto found = record().failures.find(function);
    if (found == record().failures.end()) {
        return false;
    }
    if (found->second == 0) {
        return true;
    }
    if (--found->second > 0) {
        return false;
    }
    record().failures.erase(found);
    return true;
}

} // namespace tovrel::test
