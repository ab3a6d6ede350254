/**
 * GLib's key file functions, and unlink(), with failures on demand; the linker puts these before
 * the real ones.
 */
#include "unit/events/wrapped_glib.h"

#include "fakes/call_record.h"

#include <glib.h>

#include <cerrno>

namespace tovrel::test {

std::optional<gsize> &claimedLength()
{
    static std::optional<gsize> length;
    return length;
}

} // namespace tovrel::test

using tovrel::test::claimedLength;
using tovrel::test::shallFail;

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
GKeyFile *__real_g_key_file_new();
gchar *__real_g_key_file_to_data(GKeyFile *file, gsize *length, GError **error);
GKeyFile *__wrap_g_key_file_new();
gchar *__wrap_g_key_file_to_data(GKeyFile *file, gsize *length, GError **error);
int __real_unlink(const char *path);
int __wrap_unlink(const char *path);
}

GKeyFile *__wrap_g_key_file_new()
{
    return shallFail("g_key_file_new") ? nullptr : __real_g_key_file_new();
}

gchar *__wrap_g_key_file_to_data(GKeyFile *file, gsize *length, GError **error)
{
    if (shallFail("g_key_file_to_data")) {
        g_set_error_literal(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_PARSE, "out of words");
        return nullptr;
    }
    gchar *const text = __real_g_key_file_to_data(file, length, error);
    *length = claimedLength().value_or(*length);
    return text;
}

int __wrap_unlink(const char *path)
{
    if (shallFail("unlink")) {
        errno = EACCES;
        return -1;
    }
    return __real_unlink(path);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
