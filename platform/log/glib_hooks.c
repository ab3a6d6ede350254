#include "log/glib_hooks.h"

#include <glib.h>
#include <stdlib.h>
#include <string.h>

/** The levels that G_DEBUG or g_log_set_always_fatal() had made fatal when the hooks went in. */
static GLogLevelFlags always_fatal;

static void handle_log(const gchar *domain, GLogLevelFlags level, const gchar *message,
                       gpointer user_data)
{
    (void)user_data;
    const char *text = message != NULL ? message : "(NULL) message";
    norq_log_deliver((unsigned int)level, domain, text, strlen(text));
}

static const GLogField *find_field(const GLogField *fields, gsize count, const char *key)
{
    for (gsize i = 0; i < count; ++i) {
        if (strcmp(fields[i].key, key) == 0) {
            return &fields[i];
        }
    }
    return NULL;
}

static gboolean is_fatal(GLogLevelFlags level, const GLogField *fields, gsize count)
{
    if ((level & G_LOG_FLAG_FATAL) != 0) {
        return TRUE;
    }
    /* What came through g_log() is ended by g_log() itself, which knows its domain's settings. */
    return (level & always_fatal) != 0 && find_field(fields, count, "GLIB_OLD_LOG_API") == NULL;
}

static GLogWriterOutput write_structured(GLogLevelFlags level, const GLogField *fields, gsize count,
                                         gpointer user_data)
{
    (void)user_data;
    const GLogField *message = find_field(fields, count, "MESSAGE");
    const GLogField *domain = find_field(fields, count, "GLIB_DOMAIN");
    const char *text = message != NULL ? message->value : "(no message)";
    const gboolean terminated = message == NULL || message->length < 0;
    norq_log_deliver((unsigned int)level,
                     domain != NULL && domain->length < 0 ? domain->value : NULL, text,
                     terminated ? strlen(text) : (size_t)message->length);
    /* GLib leaves this to the writer, errors apart. */
    if (is_fatal(level, fields, count)) {
        abort();
    }
    return G_LOG_WRITER_HANDLED;
}

void norq_log_install_hooks(void)
{
    always_fatal = g_log_set_always_fatal(G_LOG_FATAL_MASK);
    g_log_set_always_fatal(always_fatal);
    g_log_set_default_handler(handle_log, NULL);
    g_log_set_writer_func(write_structured, NULL, NULL);
}
