/** Owning types for the C handles of the tool: each is released by its library's own call. */
#pragma once

#include "event/json_handles.h"

#include <norq/event_consumer.h>
#include <norq/event_producer.h>

#include <glib.h>

namespace norq::tool {

using event::Bus;
using event::BusError;
using event::BusMessage;
using event::Out;
using json::CHandle;
using json::Json;
using json::MallocText;

using TextArray = CHandle<char *, g_strfreev>;
using ErrorHandle = CHandle<GError, g_error_free>;
using OptionContext = CHandle<GOptionContext, g_option_context_free>;
using MainLoop = CHandle<GMainLoop, g_main_loop_unref>;

using Declaration = CHandle<event_declaration_t, event_declaration_free>;
using Producer = CHandle<event_producer_t, event_producer_free>;
using Expression = CHandle<subscribe_expression_t, subscribe_expression_free>;
using Consumer = CHandle<event_consumer_t, event_consumer_free>;
using Event = CHandle<event_t, event_free>;

} // namespace norq::tool
