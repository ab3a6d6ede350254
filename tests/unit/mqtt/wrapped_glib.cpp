/** GLib's text functions with failures on demand; the linker puts these before GLib's own. */
#include "fakes/call_record.h"

#include <glib.h>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): names the linker gives
extern "C" {
glong __real_g_utf8_pointer_to_offset(const gchar *text, const gchar *position);
gchar *__real_g_utf8_substring(const gchar *text, glong start, glong end);
glong __wrap_g_utf8_pointer_to_offset(const gchar *text, const gchar *position);
gchar *__wrap_g_utf8_substring(const gchar *text, glong start, glong end);
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
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
