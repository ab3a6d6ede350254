/** What the parts of the faked consumer library share. */
#pragma once

#include "fakes/call_record.h"
#include "fakes/fake_event_consumer.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace tovrel::test {

/** A subscription with its callbacks under way. */
struct FakeLivingSubscription {
    FakeSubscription subscription;
    const event_consumer_t *consumer = nullptr;
};

struct FakeConsumerState {
    std::atomic<int> livingEvents = 0;
    std::atomic<int> livingJsonOptions = 0;
    std::atomic<int> livingExpressions = 0;

    std::mutex mutex; // guards what follows
    int livingConsumers = 0;
    int nextId = 0;
    int subscribeCount = 0;
    bool waits = true;
    std::map<int, FakeLivingSubscription> subscriptions;
    /** The thread of each callback under way, by subscription. */
    std::multimap<int, std::thread::id> underWay;
    std::condition_variable ended;
    std::function<std::vector<FakeReceivedEvent>(const FakeSubscription &)> keptValues;
    std::function<void()> hook;
};

/** The one library of the process. */
FakeConsumerState &fakeConsumerState();

/** Whether a call is to fail; costs nothing while recording is off. */
inline bool isToFail(const char *function)
{
    return isRecording() && shallFail(function);
}

/** Notes a call and tells whether it goes well; costs nothing while recording is off. */
bool beginCall(const char *function, std::initializer_list<const char *> arguments = {});
/** The same for a call with a number. */
bool beginCall(const char *function, unsigned int argument);

} // namespace tovrel::test
