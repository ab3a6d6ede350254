#include "dbh/api.h"
#include "dbh/call.h"
#include "dbh/error.h"
#include "dbh/quoted.h"
#include "dbh/request.h"
#include "dbh/target.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <vector>

using namespace norq::dbh;

struct dbh_request_handler {
    std::vector<const dbh_api_interface_t *> apis;
};

namespace {

const dbh_api_interface_t *findApi(const dbh_request_handler_t &handler, const Request &request,
                                   dbh_api_error_t **error)
{
    bool nameIsKnown = false;
    for (const dbh_api_interface_t *api : handler.apis) {
        if (api->name != request.api) {
            continue;
        }
        if (api->majorVersion == request.majorVersion) {
            return api;
        }
        nameIsKnown = true;
    }
    if (nameIsKnown) {
        dbh_api_error_new(error, DBH_ERROR_UNKNOWN_VERSION,
                          "API %s has no major version %" JSON_INTEGER_FORMAT, request.api,
                          request.majorVersion);
    } else {
        dbh_api_error_new(error, DBH_ERROR_UNKNOWN_API, "Unknown API %s",
                          Quoted(request.api).text());
    }
    return nullptr;
}

const Operation *findOperation(const char *name, dbh_api_error_t **error)
{
    const auto *found =
        std::find_if(OPERATIONS.begin(), OPERATIONS.end(), [name](const Operation *operation) {
            return std::strcmp(operation->requestName, name) == 0;
        });
    if (found == OPERATIONS.end()) {
        dbh_api_error_new(error, DBH_ERROR_NOT_DEFINED, "Unknown operation %s",
                          Quoted(name).text());
        return nullptr;
    }
    return *found;
}

bool checkData(const Operation &operation, const json_t *data, dbh_api_error_t **error)
{
    if (operation.takesData && data == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%s operation needs data",
                          operation.title);
    } else if (!operation.takesData && data != nullptr) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST, "%s operation takes no data",
                          operation.title);
    }
    return *error == nullptr;
}

/** Of what a get gives, the property that is asked for; none when the node left it out. */
Json pick(const Json &answer, const char *property)
{
    Json picked(json_object());
    json_t *value = json_object_get(answer.get(), property);
    if (value != nullptr && json_object_set(picked.get(), property, value) != 0) {
        throw std::bad_alloc();
    }
    return picked;
}

/** The data of the answer; empty when there is none, or when there is an error in the slot. */
Json serve(const dbh_request_handler_t &handler, const char *text, dbh_api_error_t **error)
{
    Request request;
    if (!parseRequest(text, request, error)) {
        return nullptr;
    }
    const dbh_api_interface_t *served = findApi(handler, request, error);
    if (served == nullptr) {
        return nullptr;
    }
    const Operation *operation = findOperation(request.operation, error);
    if (operation == nullptr) {
        return nullptr;
    }
    Target target(served->description);
    if (!target.find(request.path, request.property, error) || !target.allows(*operation, error) ||
        !checkData(*operation, request.data, error)) {
        return nullptr;
    }
    dbh_request_context_t context{.api = served, .options = request.options};
    Json result = call(*operation, target.node(),
                       {.path = target.keys(),
                        .property = target.property(),
                        .omitReadOnly = request.options.omitReadOnly,
                        .data = request.data,
                        .error = error,
                        .context = &context,
                        .userData = served->userData});
    if (result != nullptr && operation == &GET && target.property() != nullptr) {
        return pick(result, target.property());
    }
    return result;
}

/** Puts a value into an answer and gives the answer's text; NULL when either fails. */
char *writeAnswer(const char *name, Json value)
{
    const Json answer(json_object());
    if (json_object_set_new(answer.get(), name, value.release()) != 0) {
        return nullptr;
    }
    return json_dumps(answer.get(), JSON_COMPACT);
}

char *writeError(const dbh_api_error_t *error)
{
    return writeAnswer("error", Json(json_pack("{s:i, s:s}", "code", dbh_api_error_code(error),
                                               "message", dbh_api_error_message(error))));
}

char *answerRequest(const dbh_request_handler_t &handler, const char *request)
{
    ErrorSlot error;
    Json data = serve(handler, request, error.get());
    if (*error == nullptr) {
        char *answer = writeAnswer("data", data != nullptr ? std::move(data) : Json(json_null()));
        if (answer != nullptr) {
            return answer;
        }
        // What foreign code made need not be writable: texts that are no UTF-8, or a cycle.
        dbh_api_error_new(error.get(), DBH_ERROR_INTERNAL, "The data cannot be written as JSON");
    }
    return writeError(*error);
}

} // namespace

dbh_request_handler_t *dbh_request_handler_new(const dbh_api_interface_t *interface)
{
    try {
        auto handler = std::make_unique<dbh_request_handler_t>();
        if (interface != nullptr) {
            handler->apis.push_back(interface);
        }
        return handler.release();
    } catch (const std::exception &) {
        return nullptr;
    }
}

void dbh_request_handler_free(dbh_request_handler_t *handler)
{
    delete handler;
}

bool dbh_request_handler_add_api(dbh_request_handler_t *handler,
                                 const dbh_api_interface_t *interface, dbh_error_t **error)
{
    if (handler == nullptr || interface == nullptr) {
        reportFailure(error, "There is no %s", handler == nullptr ? "request handler" : "API");
        return false;
    }
    for (const dbh_api_interface_t *api : handler->apis) {
        if (api == interface) {
            return true;
        }
        if (api->name == interface->name && api->majorVersion == interface->majorVersion) {
            reportFailure(
                error, "Another API %s of major version %" JSON_INTEGER_FORMAT " is served already",
                api->name.c_str(), api->majorVersion);
            return false;
        }
    }
    try {
        handler->apis.push_back(interface);
        return true;
    } catch (const std::exception &failure) {
        reportFailure(error, "Cannot add the API %s: %s", interface->name.c_str(), failure.what());
        return false;
    }
}

bool dbh_request_handler_process_request(dbh_request_handler_t *handler, const char *request,
                                         char **response, dbh_error_t **error)
{
    if (response != nullptr) {
        *response = nullptr;
    }
    if (handler == nullptr || request == nullptr || response == nullptr) {
        reportFailure(error, "There is no %s",
                      handler == nullptr   ? "request handler"
                      : request == nullptr ? "request"
                                           : "place for the response");
        return false;
    }
    try {
        *response = answerRequest(*handler, request);
    } catch (const std::exception &failure) {
        reportFailure(error, "Cannot answer the request: %s", failure.what());
        return false;
    }
    if (*response == nullptr) {
        reportFailure(error, "Cannot answer the request: out of memory");
    }
    return *response != nullptr;
}
