/** Outcome of an operation whose failure is for the caller to handle. */
#pragma once

#include <norq/event_types.h>

#include <string>
#include <utility>

namespace norq::event {

/** Success, or a code of EVENT_ERROR with a text for people. */
class [[nodiscard]] Status {
public:
    /** Success. */
    Status() = default;

    /** A failure. */
    static Status failure(event_error code, std::string text)
    {
        Status status;
        status.failed = true;
        status.errorCode = code;
        status.errorText = std::move(text);
        return status;
    }

    /** True on success. */
    explicit operator bool() const { return !failed; }
    [[nodiscard]] event_error code() const { return errorCode; }
    [[nodiscard]] const std::string &text() const { return errorText; }

private:
    bool failed = false;
    event_error errorCode = EVENT_ERROR_INVALID;
    std::string errorText;
};

} // namespace norq::event
