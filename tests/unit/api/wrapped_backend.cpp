/**
 * What the handlers use of the backend and of the library's fields, with failures on demand; the
 * linker puts these before the real ones. A field that is to fail is missing.
 */
#include "api/tovrel_v2_backend.h"
#include "fakes/call_record.h"

using tovrel::test::shallFail;

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
bool __real_dbh_string_set(dbh_string_t *field, const char *value, dbh_api_error_t **error);
bool __wrap_dbh_string_set(dbh_string_t *field, const char *value, dbh_api_error_t **error);
bool __real_dbh_boolean_set(dbh_boolean_t *field, bool value, dbh_api_error_t **error);
bool __wrap_dbh_boolean_set(dbh_boolean_t *field, bool value, dbh_api_error_t **error);
dbh_string_t *__real_gdt_tovrel_v2_deviceTopicPrefix(tovrel_v2_root *obj);
dbh_string_t *__wrap_gdt_tovrel_v2_deviceTopicPrefix(tovrel_v2_root *obj);
dbh_string_t *__real_idt_tovrel_v2_subscription_id(tovrel_v2_subscription *obj);
dbh_string_t *__wrap_idt_tovrel_v2_subscription_id(tovrel_v2_subscription *obj);
}

namespace {

bool refused(dbh_api_error_t **error)
{
    dbh_api_error_new(error, DBH_ERROR_INTERNAL, "scripted failure");
    return false;
}

} // namespace

bool __wrap_dbh_string_set(dbh_string_t *field, const char *value, dbh_api_error_t **error)
{
    return shallFail("dbh_string_set") ? refused(error)
                                       : __real_dbh_string_set(field, value, error);
}

bool __wrap_dbh_boolean_set(dbh_boolean_t *field, bool value, dbh_api_error_t **error)
{
    return shallFail("dbh_boolean_set") ? refused(error)
                                        : __real_dbh_boolean_set(field, value, error);
}

dbh_string_t *__wrap_gdt_tovrel_v2_deviceTopicPrefix(tovrel_v2_root *obj)
{
    return shallFail("gdt_tovrel_v2_deviceTopicPrefix")
               ? nullptr
               : __real_gdt_tovrel_v2_deviceTopicPrefix(obj);
}

dbh_string_t *__wrap_idt_tovrel_v2_subscription_id(tovrel_v2_subscription *obj)
{
    return shallFail("idt_tovrel_v2_subscription_id") ? nullptr
                                                      : __real_idt_tovrel_v2_subscription_id(obj);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
