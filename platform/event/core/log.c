/*
 * C++ gives the enumeration GLogLevelFlags no room for user-defined levels: converting 256 to it is
 * undefined there. C has no such limit, so the call into GLib is made here.
 */
#include <glib.h>
#include <stdarg.h>

void norq_event_log(int level, const char *format, ...) G_GNUC_PRINTF(2, 3);

void norq_event_log(int level, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    g_logv(NULL, (GLogLevelFlags)level, format, arguments);
    va_end(arguments);
}
