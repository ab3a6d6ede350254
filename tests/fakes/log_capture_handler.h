/** The part of the log capture that has to be C: GLogLevelFlags cannot hold 256 in C++. */
#pragma once

#include <glib.h>

G_BEGIN_DECLS

/** A GLogFunc that hands each line to tovrel_test_captured_line() with the level as a number. */
void tovrel_test_capture_line(const gchar *domain, GLogLevelFlags level, const gchar *message,
                              gpointer user_data);

/** Implemented by the log capture. */
void tovrel_test_captured_line(int level, const char *message, void *user_data);

G_END_DECLS
