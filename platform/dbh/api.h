/** An API as the parts of the library see it. */
#pragma once

#include "dbh/description.h"

#include <norq/dbh.h>

#include <string>

/** What a request handler needs of an API. */
struct dbh_api_interface {
    std::string name;
    json_int_t majorVersion;
    norq::dbh::Description description;
    void *userData;
};

struct dbh_options {
    dbh_import_type importType = DBH_IMPORT_MERGE;
    bool omitReadOnly = false;
};

struct dbh_request_context {
    const dbh_api_interface_t *api;
    dbh_options options;
};
