#include "dbh/call.h"

#include <cstdlib>
#include <exception>

namespace norq::dbh {

namespace {

/** The last stop of exceptions: on the way up there may be C code, which cannot be unwound. */
Json callGuarded(const Operation &operation, const dbh_node_t &node, const Arguments &arguments)
{
    const char *reason = "unknown exception";
    try {
        return Json((node.*operation.slot)(&node, arguments.path, arguments.property,
                                           arguments.omitReadOnly, arguments.data, arguments.error,
                                           arguments.context, arguments.userData));
    } catch (const std::exception &failure) {
        reason = failure.what();
        g_warning("%s operation of %s threw: %s", operation.title, node.name, reason);
    } catch (...) {
        g_warning("%s operation of %s threw: %s", operation.title, node.name, reason);
    }
    dbh_api_error_new(arguments.error, DBH_ERROR_INTERNAL, "Internal error");
    return nullptr;
}

} // namespace

Json call(const Operation &operation, const dbh_node_t &node, const Arguments &arguments) noexcept
{
    Json result = callGuarded(operation, node, arguments);
    if (*arguments.error != nullptr) {
        return nullptr;
    }
    if (result == nullptr && operation.givesData) {
        dbh_api_error_new(arguments.error, DBH_ERROR_INTERNAL, "%s operation of %s gave no data",
                          operation.title, arguments.context->api->description.pathOf(node));
    }
    return result;
}

void shortenPath(GQueue *path, unsigned int length) noexcept
{
    while (g_queue_get_length(path) > length) {
        std::free(g_queue_pop_tail(path));
    }
}

} // namespace norq::dbh
