#include "fakes/log_capture_handler.h"

void tovrel_test_capture_line(const gchar *domain, GLogLevelFlags level, const gchar *message,
                              gpointer user_data)
{
    (void)domain;
    tovrel_test_captured_line((int)(level & G_LOG_LEVEL_MASK), message, user_data);
}
