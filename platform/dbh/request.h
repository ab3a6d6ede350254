/** One request: its text turned into its parts. */
#pragma once

#include "dbh/api.h"
#include "dbh/handles.h"
#include "dbh/operation.h"

namespace norq::dbh {

/** The parts; those that point are borrowed from `document`. */
struct Request {
    Json document;
    const char *api = nullptr;
    json_int_t majorVersion = 0;
    const char *operation = nullptr;
    const json_t *path = nullptr; /**< an array of strings, or NULL for the root */
    const char *property = nullptr;
    const json_t *data = nullptr;
    dbh_options options;
};

/** Parses a request; false with an error in the slot when it is not formed as one. */
bool parseRequest(const char *text, Request &request, dbh_api_error_t **error);

} // namespace norq::dbh
