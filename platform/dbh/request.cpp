#include "dbh/request.h"

#include "dbh/json_checks.h"
#include "dbh/quoted.h"
#include "dbh/text.h"

#include <array>
#include <cstring>

namespace norq::dbh {

namespace {

constexpr std::array<const char *, 8> FIELDS{"api",      "version", "operation", "path",
                                             "property", "data",    "options",   nullptr};
constexpr std::array<const char *, 3> OPTIONS{"importType", "omitReadOnly", nullptr};

const char *whatIsWrong(const json_error_t &failure)
{
    switch (json_error_code(&failure)) {
    case json_error_stack_overflow:
        return "nested too deeply";
    case json_error_premature_end_of_input:
        return "ends too early";
    case json_error_end_of_input_expected:
        return "goes on after its end";
    case json_error_invalid_utf8:
        return "not valid UTF-8";
    case json_error_null_character:
    case json_error_null_byte_in_key:
        return "contains a NUL character";
    case json_error_duplicate_key:
        return "a field stands twice";
    case json_error_numeric_overflow:
        return "a number is out of range";
    default:
        return "syntax error";
    }
}

bool refuseType(const char *name, const char *expected, const json_t *value,
                dbh_api_error_t **error)
{
    if (value == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST, "Request: Missing field %s", name);
    } else {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST,
                          "Request: Field %s: Expected JSON %s but got %s", name, expected,
                          dbh_json_type(value));
    }
    return false;
}

bool refuseUnexpected(const json_t *object, const char *const *names, const char *what,
                      dbh_api_error_t **error)
{
    const char *unexpected = firstUnexpectedField(object, names);
    if (unexpected == nullptr) {
        return true;
    }
    dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST, "Request: Unexpected %s %s", what,
                      Quoted(unexpected).text());
    return false;
}

bool readText(const json_t *document, const char *name, const char *&text, dbh_api_error_t **error)
{
    const json_t *value = json_object_get(document, name);
    text = json_string_value(value);
    return text != nullptr || refuseType(name, "string", value, error);
}

bool readVersion(const json_t *document, json_int_t &version, dbh_api_error_t **error)
{
    const json_t *value = json_object_get(document, "version");
    version = json_integer_value(value);
    return json_is_integer(value) || refuseType("version", "integer", value, error);
}

bool readPath(const json_t *document, const json_t *&path, dbh_api_error_t **error)
{
    path = json_object_get(document, "path");
    if (path == nullptr) {
        return true;
    }
    if (!json_is_array(path)) {
        return refuseType("path", "array", path, error);
    }
    for (std::size_t index = 0; index < json_array_size(path); ++index) {
        const json_t *step = json_array_get(path, index);
        if (!json_is_string(step)) {
            return refuseType("path", "array of strings", step, error);
        }
    }
    return true;
}

bool readImportType(const json_t *value, dbh_import_type &type, dbh_api_error_t **error)
{
    const char *text = json_string_value(value);
    if (text == nullptr) {
        return refuseType("options.importType", "string", value, error);
    }
    if (std::strcmp(text, "merge") != 0 && std::strcmp(text, "replace") != 0) {
        dbh_api_error_new(
            error, DBH_ERROR_MALFORMED_REQUEST,
            "Request: Field options.importType: Value %s is not one of merge, replace",
            Quoted(text).text());
        return false;
    }
    type = *text == 'm' ? DBH_IMPORT_MERGE : DBH_IMPORT_REPLACE;
    return true;
}

bool readOptions(const json_t *options, dbh_options &result, dbh_api_error_t **error)
{
    if (options == nullptr) {
        return true;
    }
    if (!json_is_object(options)) {
        return refuseType("options", "object", options, error);
    }
    if (!refuseUnexpected(options, OPTIONS.data(), "option", error)) {
        return false;
    }
    const json_t *importType = json_object_get(options, "importType");
    if (importType != nullptr && !readImportType(importType, result.importType, error)) {
        return false;
    }
    const json_t *omitReadOnly = json_object_get(options, "omitReadOnly");
    if (omitReadOnly != nullptr && !json_is_boolean(omitReadOnly)) {
        return refuseType("options.omitReadOnly", "boolean", omitReadOnly, error);
    }
    result.omitReadOnly = json_is_true(omitReadOnly);
    return true;
}

bool parseDocument(const char *text, Json &document, dbh_api_error_t **error)
{
    const std::size_t length = strnlen(text, DBH_MAX_REQUEST_LENGTH + 1);
    if (length > DBH_MAX_REQUEST_LENGTH) {
        dbh_api_error_new(error, DBH_ERROR_REQUEST_TOO_LARGE, "Request is longer than %d bytes",
                          DBH_MAX_REQUEST_LENGTH);
        return false;
    }
    json_error_t failure;
    document.reset(json_loadb(text, length, JSON_REJECT_DUPLICATES, &failure));
    if (document == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST,
                          "Request is not valid JSON at line %d, column %d: %s", failure.line,
                          failure.column, whatIsWrong(failure));
        return false;
    }
    if (!holdsOnlyTexts(document.get())) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST,
                          "Request: A text contains a noncharacter");
        return false;
    }
    return true;
}

} // namespace

bool parseRequest(const char *text, Request &request, dbh_api_error_t **error)
{
    if (!parseDocument(text, request.document, error)) {
        return false;
    }
    const json_t *document = request.document.get();
    if (!json_is_object(document)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_REQUEST,
                          "Request: Expected JSON object but got %s", dbh_json_type(document));
        return false;
    }
    request.data = json_object_get(document, "data");
    const bool hasProperty = json_object_get(document, "property") != nullptr;
    return refuseUnexpected(document, FIELDS.data(), "field", error) &&
           readText(document, "api", request.api, error) &&
           readVersion(document, request.majorVersion, error) &&
           readText(document, "operation", request.operation, error) &&
           readPath(document, request.path, error) &&
           (!hasProperty || readText(document, "property", request.property, error)) &&
           readOptions(json_object_get(document, "options"), request.options, error);
}

} // namespace norq::dbh
