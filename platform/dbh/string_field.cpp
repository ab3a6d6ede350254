#include "dbh/handles.h"
#include "dbh/json_checks.h"
#include "dbh/quoted.h"
#include "dbh/text.h"

#include <norq/dbh_fields.h>

#include <cstring>

using norq::dbh::GText;
using norq::dbh::Quoted;

namespace {

/** How a value can break a declaration. */
enum class Fault { NONE, MISSING, NOT_TEXT, TOO_SHORT, TOO_LONG, NOT_ALLOWED };

Fault findFault(const dbh_string_t &field, const char *value)
{
    if (value == nullptr) {
        return Fault::MISSING;
    }
    if (!norq::dbh::isText(value)) {
        return Fault::NOT_TEXT;
    }
    const glong length = g_utf8_strlen(value, -1);
    if (field.min_length >= 0 && length < field.min_length) {
        return Fault::TOO_SHORT;
    }
    if (field.max_length >= 0 && length > field.max_length) {
        return Fault::TOO_LONG;
    }
    if (field.allowed_values != nullptr && !norq::dbh::isOneOf(value, field.allowed_values)) {
        return Fault::NOT_ALLOWED;
    }
    return Fault::NONE;
}

GText listAllowed(const dbh_string_t &field)
{
    // g_strjoinv() only reads, but its type is that for changing.
    return GText(g_strjoinv(", ", const_cast<char **>(field.allowed_values)));
}

void reportFault(const dbh_string_t &field, Fault fault, const char *value, int code,
                 dbh_api_error_t **error)
{
    switch (fault) {
    case Fault::NONE:
        break;
    case Fault::MISSING:
        dbh_api_error_new(error, code, "Property %s: Value is missing", field.name);
        break;
    case Fault::NOT_TEXT:
        dbh_api_error_new(error, code, "Property %s: Value is not valid UTF-8", field.name);
        break;
    case Fault::TOO_SHORT:
        dbh_api_error_new(error, code, "Property %s: Value is shorter than %d characters",
                          field.name, field.min_length);
        break;
    case Fault::TOO_LONG:
        dbh_api_error_new(error, code, "Property %s: Value is longer than %d characters",
                          field.name, field.max_length);
        break;
    case Fault::NOT_ALLOWED:
        dbh_api_error_new(error, code, "Property %s: Value %s is not one of %s", field.name,
                          Quoted(value).text(), listAllowed(field).get());
        break;
    }
}

bool assign(dbh_string_t &field, const char *value, int codeOfFailure, dbh_api_error_t **error)
{
    const Fault fault = findFault(field, value);
    if (fault != Fault::NONE) {
        reportFault(field, fault, value, codeOfFailure, error);
        return false;
    }
    // The value may be the field's own.
    char *copy = g_strdup(value);
    g_free(field.value);
    field.value = copy;
    return true;
}

} // namespace

void dbh_string_init(dbh_string_t *field, const char *name)
{
    dbh_string_init_full(field, name, -1, -1, nullptr);
}

void dbh_string_init_full(dbh_string_t *field, const char *name, int min_length, int max_length,
                          const char *const *allowed_values)
{
    g_return_if_fail(field != nullptr);
    *field = {.name = name,
              .value = nullptr,
              .min_length = min_length,
              .max_length = max_length,
              .allowed_values = allowed_values};
}

void dbh_string_deinit(dbh_string_t *field)
{
    g_return_if_fail(field != nullptr);
    g_free(field->value);
    field->value = nullptr;
}

bool dbh_string_is_set(const dbh_string_t *field)
{
    g_return_val_if_fail(field != nullptr, false);
    return field->value != nullptr;
}

const char *dbh_string_value(const dbh_string_t *field)
{
    g_return_val_if_fail(field != nullptr, nullptr);
    return field->value;
}

bool dbh_string_validate_value(const dbh_string_t *field, const char *value)
{
    g_return_val_if_fail(field != nullptr, false);
    return findFault(*field, value) == Fault::NONE;
}

bool dbh_string_set(dbh_string_t *field, const char *value, dbh_api_error_t **error)
{
    if (field == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "There is no field to set");
    }
    g_return_val_if_fail(field != nullptr, false);
    return assign(*field, value, DBH_ERROR_INTERNAL, error);
}

json_t *dbh_string_serialize(const dbh_string_t *field)
{
    g_return_val_if_fail(field != nullptr, nullptr);
    return field->value != nullptr ? json_string(field->value) : nullptr;
}

bool dbh_string_deserialize(dbh_string_t *field, const json_t *json, dbh_api_error_t **error)
{
    if (field == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "There is no field to set");
    }
    g_return_val_if_fail(field != nullptr, false);
    if (!json_is_string(json)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA,
                          "Property %s: Expected JSON string but got %s", field->name,
                          dbh_json_type(json));
        return false;
    }
    const char *value = json_string_value(json);
    if (std::strlen(value) != json_string_length(json)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA,
                          "Property %s: Value contains a NUL character", field->name);
        return false;
    }
    if (json_string_length(json) > DBH_MAX_TEXT_LENGTH) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA,
                          "Property %s: Value is longer than %d bytes", field->name,
                          DBH_MAX_TEXT_LENGTH);
        return false;
    }
    return assign(*field, value, DBH_ERROR_MALFORMED_DATA, error);
}
