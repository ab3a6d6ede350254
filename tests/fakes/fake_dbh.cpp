#include "fakes/fake_dbh.h"

#include "api/tovrel_v2_backend.h"
#include "fakes/call_record.h"

#include <cstring>

using namespace tovrel::test;

struct dbh_error {
    std::string message;
};

struct dbh_api {};
struct dbh_api_interface {};
struct dbh_request_handler {};

namespace tovrel::test {

FakeDbh &fakeDbh()
{
    static FakeDbh fake;
    return fake;
}

void resetFakeDbh()
{
    fakeDbh() = FakeDbh();
}

} // namespace tovrel::test

namespace {

dbh_api_interface theInterface;

void leave(dbh_error_t **error, const std::string &message)
{
    ++fakeDbh().livingErrors;
    *error = new dbh_error{message};
}

} // namespace

dbh_api_t *tovrel_v2_create_api(void *userData, void (* /*userDataFree*/)(void *userData),
                                dbh_error_t **error)
{
    recordCall("tovrel_v2_create_api");
    fakeDbh().userData = userData;
    if (fakeDbh().creationFailure) {
        leave(error, *fakeDbh().creationFailure);
        return nullptr;
    }
    ++fakeDbh().livingApis;
    return new dbh_api;
}

const dbh_api_interface_t *dbh_get_api_interface(const dbh_api_t *api)
{
    return api == nullptr ? nullptr : &theInterface;
}

void dbh_delete_api(dbh_api_t *api)
{
    recordCall("dbh_delete_api");
    --fakeDbh().livingApis;
    delete api;
}

dbh_request_handler_t *dbh_request_handler_new(const dbh_api_interface_t *interface)
{
    recordCall(std::string("dbh_request_handler_new ") + (interface == nullptr ? "none" : "api"));
    ++fakeDbh().livingHandlers;
    return new dbh_request_handler;
}

void dbh_request_handler_free(dbh_request_handler_t *handler)
{
    recordCall("dbh_request_handler_free");
    --fakeDbh().livingHandlers;
    delete handler;
}

bool dbh_request_handler_add_api(dbh_request_handler_t * /*handler*/,
                                 const dbh_api_interface_t *interface, dbh_error_t **error)
{
    recordCall(std::string("dbh_request_handler_add_api ") +
               (interface == nullptr ? "none" : "api"));
    if (interface == nullptr || fakeDbh().additionFailure) {
        leave(error, fakeDbh().additionFailure.value_or("no API"));
        return false;
    }
    return true;
}

bool dbh_request_handler_process_request(dbh_request_handler_t * /*handler*/, const char *request,
                                         char **response, dbh_error_t **error)
{
    const std::string text = request == nullptr ? "(null)" : request;
    recordCall("dbh_request_handler_process_request " + text);
    const auto answer = fakeDbh().answer ? fakeDbh().answer(text) : std::nullopt;
    *response = answer ? strdup(answer->c_str()) : nullptr;
    if (!answer) {
        leave(error, fakeDbh().processingFailure);
    }
    return answer.has_value();
}

const char *dbh_error_message(const dbh_error_t *error)
{
    return error == nullptr ? "Unknown error" : error->message.c_str();
}

void dbh_error_free(dbh_error_t *error)
{
    --fakeDbh().livingErrors;
    delete error;
}
