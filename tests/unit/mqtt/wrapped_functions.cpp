/** Library functions with failures on demand; the linker puts these before the libraries' own. */
#include "fakes/call_record.h"

#include <glib.h>

#include <cerrno>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
glong __real_g_utf8_pointer_to_offset(const gchar *text, const gchar *position);
gchar *__real_g_utf8_substring(const gchar *text, glong start, glong end);
glong __wrap_g_utf8_pointer_to_offset(const gchar *text, const gchar *position);
gchar *__wrap_g_utf8_substring(const gchar *text, glong start, glong end);
int __real_remove(const char *path);
int __wrap_remove(const char *path);
}

glong __wrap_g_utf8_pointer_to_offset(const gchar *text, const gchar *position)
{
    return tovrel::test::shallFail("g_utf8_pointer_to_offset")
               ? -1
               : __real_g_utf8_pointer_to_offset(text, position);
}

gchar *__wrap_g_utf8_substring(const gchar *text, glong start, glong end)
{
    return tovrel::test::shallFail("g_utf8_substring") ? nullptr
                                                       : __real_g_utf8_substring(text, start, end);
}

int __wrap_remove(const char *path)
{
    if (tovrel::test::shallFail("remove")) {
        errno = EROFS;
        return -1;
    }
    return __real_remove(path);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
