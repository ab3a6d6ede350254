#include "support/served_api.h"

#include "support/fuzz.h"

#include <cstring>
#include <utility>

using test_support::require;

namespace {

void checkForm(const char *answer)
{
    require(g_utf8_validate(answer, -1, nullptr), "an answer is valid UTF-8");
    require(std::strchr(answer, '\n') == nullptr, "an answer is one line");
    const OwnedJson json(json_loads(answer, JSON_REJECT_DUPLICATES | JSON_ALLOW_NUL, nullptr));
    require(json_is_object(json.get()) && json_object_size(json.get()) == 1,
            "an answer is an object with one field");
    const json_t *error = json_object_get(json.get(), "error");
    if (error == nullptr) {
        require(json_object_get(json.get(), "data") != nullptr, "it is data or an error");
        return;
    }
    require(json_object_size(error) == 2 && json_is_integer(json_object_get(error, "code")) &&
                json_is_string(json_object_get(error, "message")),
            "an error is a code and a message");
}

} // namespace

ServedApi::ServedApi(const dbh_api_descriptor_t &descriptor, void *userData)
    : ServedApi(OwnedApi(dbh_create_api(&descriptor, userData, nullptr, nullptr)))
{
}

ServedApi::ServedApi(OwnedApi created)
    : api(std::move(created)),
      requestHandler(dbh_request_handler_new(dbh_get_api_interface(api.get())))
{
    require(dbh_request_handler_add_api(requestHandler.get(), dbh_get_api_interface(api.get()),
                                        nullptr),
            "the API is served");
}

std::string ServedApi::ask(const std::string &request)
{
    char *response = nullptr;
    dbh_error_t *error = nullptr;
    const bool answered = dbh_request_handler_process_request(requestHandler.get(), request.c_str(),
                                                              &response, &error);
    require(answered && response != nullptr && error == nullptr, "every request has an answer");
    checkForm(response);
    std::string answer = response;
    std::free(response);
    return answer;
}
