#include "dbh/error.h"

#include "dbh/handles.h"

#include <cstdarg>
#include <new>

using norq::dbh::GText;

struct dbh_api_error {
    int code;
    GText message;
};

struct dbh_error {
    GText message;
};

namespace norq::dbh {

void reportFailure(dbh_error_t **error, const char *format, ...) noexcept
{
    if (error == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    const GText message(g_strdup_vprintf(format, arguments));
    va_end(arguments);
    *error = new (std::nothrow) dbh_error{GText(g_utf8_make_valid(message.get(), -1))};
}

} // namespace norq::dbh

void dbh_api_error_new(dbh_api_error_t **error, int code, const char *format, ...)
{
    if (error == nullptr || *error != nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    const GText message(g_strdup_vprintf(format, arguments));
    va_end(arguments);
    *error = new (std::nothrow) dbh_api_error{code, GText(g_utf8_make_valid(message.get(), -1))};
    g_assert(*error != nullptr);
}

int dbh_api_error_code(const dbh_api_error_t *error)
{
    return error != nullptr ? error->code : DBH_ERROR_INTERNAL;
}

const char *dbh_api_error_message(const dbh_api_error_t *error)
{
    return error != nullptr ? error->message.get() : "";
}

void dbh_api_error_free(dbh_api_error_t *error)
{
    delete error;
}

const char *dbh_error_message(const dbh_error_t *error)
{
    return error != nullptr ? error->message.get() : "Unknown error";
}

void dbh_error_free(dbh_error_t *error)
{
    delete error;
}
