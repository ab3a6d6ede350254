/**
 * The ends that hang in GLib. They are C because GLib's enumeration of levels has no room in C++
 * for user-defined levels such as 256: a C++ function could not even receive one.
 */
#ifndef NORQ_LOG_GLIB_HOOKS_H
#define NORQ_LOG_GLIB_HOOKS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Hooks into g_log() and structured logging. GLib allows that once in a process. */
void norq_log_install_hooks(void);

/**
 * Where both ends deliver: one message of `length` bytes, any bytes. `level` has one or more of
 * GLib's level bits. `domain` may be NULL. Any thread.
 */
void norq_log_deliver(unsigned int level, const char *domain, const char *message, size_t length);

#ifdef __cplusplus
}
#endif

#endif
