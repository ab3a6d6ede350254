/** Owning types for what the C libraries and this one hand out. */
#pragma once

#include <norq/dbh_node.h>

#include <memory>

namespace norq::dbh {

/** Deleter that calls one C function. */
template <auto Release>
struct ReleaseWith {
    template <typename Handle>
    void operator()(Handle *handle) const noexcept
    {
        Release(handle);
    }
};

/** Drops a reference. A type of its own: json_decref() is static, and would make Json so, too. */
struct DropReference {
    void operator()(json_t *json) const noexcept { json_decref(json); }
};

/** One reference to a JSON value. */
using Json = std::unique_ptr<json_t, DropReference>;
/** A text from GLib's allocator. */
using GText = std::unique_ptr<char, ReleaseWith<g_free>>;
/** A description from its builder. */
using NodeTree = std::unique_ptr<dbh_node_t, ReleaseWith<dbh_node_free>>;

/** The slot of one request for its error. */
class ErrorSlot {
public:
    ErrorSlot() = default;
    ~ErrorSlot() { dbh_api_error_free(error); }
    ErrorSlot(const ErrorSlot &) = delete;
    ErrorSlot &operator=(const ErrorSlot &) = delete;

    dbh_api_error_t **get() { return &error; }
    const dbh_api_error_t *operator*() const { return error; }

private:
    dbh_api_error_t *error = nullptr;
};

} // namespace norq::dbh
