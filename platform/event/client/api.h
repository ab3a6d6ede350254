/** What the C functions of the library share. */
#pragma once

#include "event/core/barrier.h"
#include "event/core/status.h"

#include <glib.h>

#include <string_view>

namespace norq::event {

/** 1 on success; otherwise 0 with the GError set. */
int report(const Status &status, GError **error);

/** Runs `body`, which gives a Status, behind the barrier and reports its outcome. */
template <typename Body>
int reported(GError **error, Body body) noexcept
{
    const auto failure = [] {
        return Status::failure(EVENT_ERROR_UNAVAILABLE, "resources are exhausted");
    };
    return withBarrier("A call of the event library", 0, [&] {
        Status status = withBarrier("A call of the event library", failure(), body);
        return report(status, error);
    });
}

/** A text that may be NULL as a view. */
inline std::string_view viewOf(const char *text)
{
    return text == nullptr ? std::string_view() : std::string_view(text);
}

} // namespace norq::event
