/** Owning types for the handles of the C libraries: each is released by its library's own call. */
#pragma once

#include <glib.h>

#include <cstdlib>
#include <memory>

namespace tovrel {

/** Deleter that calls one C function. */
template <auto Release>
struct ReleaseWith {
    template <typename Handle>
    void operator()(Handle *handle) const noexcept
    {
        Release(handle);
    }
};

/** A C handle released by `Release`. */
template <typename Handle, auto Release>
using CHandle = std::unique_ptr<Handle, ReleaseWith<Release>>;

/** A text from the C allocator, as the platform's libraries and sd-bus hand them out. */
using MallocText = CHandle<char, std::free>;
/** A text from GLib's allocator. */
using GText = CHandle<char, g_free>;
/** A GLib error. */
using ErrorHandle = CHandle<GError, g_error_free>;

/** The message of an error for the log, also when a library failed without giving one. */
inline const char *errorText(const ErrorHandle &error)
{
    return error ? error->message : "unknown error";
}

/**
 * Receives an out-parameter of a C call into an owning handle at the end of the full expression:
 * `call(OutParameter(handle))`.
 */
template <typename Owner>
class OutParameter {
public:
    explicit OutParameter(Owner &target) : owner(target) {}
    OutParameter(const OutParameter &) = delete;
    OutParameter &operator=(const OutParameter &) = delete;
    ~OutParameter() { owner.reset(raw); }

    operator typename Owner::pointer *() { return &raw; }

private:
    Owner &owner;
    typename Owner::pointer raw = nullptr;
};

} // namespace tovrel
