/** What rendering JSON shares: owning types for its C handles and its one kind of failure. */
#pragma once

#include "event/core/bus_handles.h"

#include <glib.h>
#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace norq::json {

/** A C handle released by `Release`. */
template <typename Handle, auto Release>
using CHandle = std::unique_ptr<Handle, event::ReleaseWith<Release>>;

/** One reference to a JSON value. */
using Json = CHandle<json_t, json_decref>;
/** A text from GLib's allocator. */
using GText = CHandle<char, g_free>;
/** A text from the C allocator. */
using MallocText = CHandle<char, std::free>;

/** The event cannot be rendered: a text that JSON cannot hold, or memory is exhausted. */
class RenderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Takes over a new JSON value; Jansson gives NULL for bad UTF-8 and for exhausted memory. */
inline Json owned(json_t *value)
{
    if (value == nullptr) {
        throw RenderError("a value is not valid UTF-8 or memory is exhausted");
    }
    return Json(value);
}

/** Puts a value into an object, replacing one of the same name. */
inline void put(json_t *object, const char *name, Json value)
{
    // json_object_set_new() takes the reference over even when it fails
    if (json_object_set_new(object, name, value.release()) != 0) {
        throw RenderError("a name is not valid UTF-8 or memory is exhausted");
    }
}

} // namespace norq::json
