/** What the two kinds of the faked library's events have in common: they can be freed. */
#pragma once

#include <norq/event.h>

struct event {
    event() = default;
    event(const event &) = delete;
    event &operator=(const event &) = delete;
    virtual ~event() = default;
};
