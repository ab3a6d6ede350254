/** A way to a state that no operation leads to. */
#pragma once

#include "events/event_filter_config.h"

namespace tovrel::test {

/** Sets a filter's policy to any value, one that is none as well. */
void breakRetainPolicy(EventFilterConfig &filter, RetainPolicy value);

} // namespace tovrel::test
