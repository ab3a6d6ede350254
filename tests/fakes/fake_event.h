/**
 * Stands in for the producer side of the event service library. Keeps to its rules: an open key
 * must be set before sending, a fixed one keeps its value, a value has the declared type. Not
 * thread-safe.
 */
#pragma once

#include <norq/event_producer.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

/** A key as it was declared. */
struct FakeKey {
    event_value_type type = EVENT_VALUE_STRING;
    std::optional<std::string> fixedValue; // texts as event_get_value() would give them
    std::string nameSpace;
    std::string niceName;
    std::vector<std::string> tags;
    bool isProperty = false;

    bool operator==(const FakeKey &) const = default;
};

/** A declaration: keys in the order of their addition. */
using FakeDeclaration = std::vector<std::pair<std::string, FakeKey>>;

/** An event that was sent. */
struct FakeSentEvent {
    int declarationId = -1;
    std::map<std::string, std::string> values; // the fixed ones included

    bool operator==(const FakeSentEvent &) const = default;
};

/** The scripted library. Its calls are recorded by function name and the ids and keys they name. */
struct FakeEvents {
    /** Living declarations by id. */
    std::map<int, FakeDeclaration> declarations;
    /** Events in the order of sending, while recording is on. */
    std::vector<FakeSentEvent> sent;
    /** Number of events sent. */
    unsigned long sentCount = 0;
    /** Message of a failing call that reports an error; none: the error stays unset. */
    std::optional<std::string> failureMessage = "scripted failure";
    int nextId = 0;
    /** Objects that were created and not freed. */
    int livingProducers = 0;
    int livingDeclarations = 0;
    int livingEvents = 0;
    /** What event_producer_new() was given. */
    std::string producerName;
    void *producerUserData = nullptr;
    int producerTimeoutMs = 0;
    unsigned int producerFlags = 0;
};

/** The one library of the process. */
FakeEvents &fakeEvents();

/** Puts the library back to its first state. */
void resetFakeEvents();

} // namespace tovrel::test
