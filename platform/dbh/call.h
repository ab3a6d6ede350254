/** Calling the operations of nodes, which are foreign code. */
#pragma once

#include "dbh/api.h"
#include "dbh/handles.h"
#include "dbh/operation.h"

namespace norq::dbh {

/** What an operation is called with, besides its node; see dbh_operation_t. */
struct Arguments {
    GQueue *path;
    const char *property;
    bool omitReadOnly;
    const json_t *data;
    dbh_api_error_t **error;
    dbh_request_context_t *context;
    void *userData;
};

/**
 * Calls an operation that the node has. Afterwards either there is an error in the slot and the
 * result is empty, or there is none and the result holds what operations of this kind give.
 */
Json call(const Operation &operation, const dbh_node_t &node, const Arguments &arguments) noexcept;

/** Takes keys off the end of a path until `length` are left. */
void shortenPath(GQueue *path, unsigned int length) noexcept;

} // namespace norq::dbh
