#include <norq/dbh_fields.h>

void dbh_boolean_init(dbh_boolean_t *field, const char *name)
{
    g_return_if_fail(field != nullptr);
    *field = {.name = name, .value = false, .is_set = false};
}

void dbh_boolean_deinit(dbh_boolean_t *field)
{
    g_return_if_fail(field != nullptr);
    field->value = false;
    field->is_set = false;
}

bool dbh_boolean_is_set(const dbh_boolean_t *field)
{
    g_return_val_if_fail(field != nullptr, false);
    return field->is_set;
}

bool dbh_boolean_value(const dbh_boolean_t *field)
{
    g_return_val_if_fail(field != nullptr, false);
    return field->value;
}

bool dbh_boolean_set(dbh_boolean_t *field, bool value, dbh_api_error_t **error)
{
    if (field == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "There is no field to set");
    }
    g_return_val_if_fail(field != nullptr, false);
    field->value = value;
    field->is_set = true;
    return true;
}

json_t *dbh_boolean_serialize(const dbh_boolean_t *field)
{
    g_return_val_if_fail(field != nullptr, nullptr);
    return field->is_set ? json_boolean(field->value) : nullptr;
}

bool dbh_boolean_deserialize(dbh_boolean_t *field, const json_t *json, dbh_api_error_t **error)
{
    if (field != nullptr && !json_is_boolean(json)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA,
                          "Property %s: Expected JSON boolean but got %s", field->name,
                          dbh_json_type(json));
        return false;
    }
    return dbh_boolean_set(field, json_is_true(json), error);
}
