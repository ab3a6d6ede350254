/**
 * Stands in for the part of the configuration-API library that carries texts in and out: creating
 * the API and a request handler, and processing a request. Its calls are recorded.
 */
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace tovrel::test {

/** The scripted library. */
struct FakeDbh {
    /** Messages of failures to create and to add the API; nothing: it goes well. */
    std::optional<std::string> creationFailure;
    std::optional<std::string> additionFailure;
    /** Answers a request, "(null)" for none; nothing: processing fails with `processingFailure`. */
    std::function<std::optional<std::string>(const std::string &request)> answer;
    std::string processingFailure = "scripted failure";

    /** What the API was created with. */
    void *userData = nullptr;
    int livingApis = 0;
    int livingHandlers = 0;
    int livingErrors = 0;
};

/** The one library of the process. */
FakeDbh &fakeDbh();

/** Puts the library back to its first state. */
void resetFakeDbh();

} // namespace tovrel::test
