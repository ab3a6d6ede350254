#include "dbh/json_checks.h"

#include "dbh/quoted.h"

#include <cstring>

namespace norq::dbh {

bool isOneOf(const char *text, const char *const *list)
{
    for (; *list != nullptr; ++list) {
        if (std::strcmp(*list, text) == 0) {
            return true;
        }
    }
    return false;
}

const char *firstUnexpectedField(const json_t *object, const char *const *allowedNames)
{
    // The iterators only read, but their type is that for changing.
    auto *fields = const_cast<json_t *>(object);
    for (void *field = json_object_iter(fields); field != nullptr;
         field = json_object_iter_next(fields, field)) {
        const char *name = json_object_iter_key(field);
        if (!isOneOf(name, allowedNames)) {
            return name;
        }
    }
    return nullptr;
}

} // namespace norq::dbh

const char *dbh_json_type(const json_t *json)
{
    if (json == nullptr) {
        return "nothing";
    }
    switch (json_typeof(json)) {
    case JSON_OBJECT:
        return "object";
    case JSON_ARRAY:
        return "array";
    case JSON_STRING:
        return "string";
    case JSON_INTEGER:
        return "integer";
    case JSON_REAL:
        return "real";
    case JSON_TRUE:
    case JSON_FALSE:
        return "boolean";
    case JSON_NULL:
        break;
    }
    return "null";
}

bool dbh_json_object_contains_unexpected_field(const json_t *json, const char *context,
                                               const char *const *allowed_names,
                                               dbh_api_error_t **error)
{
    const char *name = norq::dbh::firstUnexpectedField(json, allowed_names);
    if (name == nullptr) {
        return false;
    }
    dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%s: Unexpected field %s", context,
                      norq::dbh::Quoted(name).text());
    return true;
}
