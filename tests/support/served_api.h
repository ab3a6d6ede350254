/** An API behind a request handler of its own, asked in C++ texts. */
#pragma once

#include <norq/dbh.h>

#include <memory>
#include <string>

struct FreeServedHandles {
    void operator()(dbh_api_t *api) const { dbh_delete_api(api); }
    void operator()(dbh_request_handler_t *handler) const { dbh_request_handler_free(handler); }
    void operator()(json_t *json) const { json_decref(json); }
    void operator()(dbh_api_error_t *error) const { dbh_api_error_free(error); }
    void operator()(dbh_error_t *error) const { dbh_error_free(error); }
};
using OwnedApi = std::unique_ptr<dbh_api_t, FreeServedHandles>;
using OwnedHandler = std::unique_ptr<dbh_request_handler_t, FreeServedHandles>;
using OwnedJson = std::unique_ptr<json_t, FreeServedHandles>;
using OwnedApiError = std::unique_ptr<dbh_api_error_t, FreeServedHandles>;
using OwnedError = std::unique_ptr<dbh_error_t, FreeServedHandles>;

class ServedApi {
public:
    /** Ends the process when the API cannot be created or served. */
    ServedApi(const dbh_api_descriptor_t &descriptor, void *userData);
    explicit ServedApi(OwnedApi created);

    /**
     * The answer to a request. Ends the process when there is none, or when it is not one line of
     * valid UTF-8 with either data or an error, a code and a message, in it.
     */
    std::string ask(const std::string &request);

    dbh_request_handler_t *handler() { return requestHandler.get(); }

private:
    OwnedApi api;
    OwnedHandler requestHandler;
};
