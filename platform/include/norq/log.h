/** The platform logger: carries a process's GLib log output to the system log. */
#ifndef NORQ_LOG_H
#define NORQ_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Routes all GLib log output of the process, g_log() as well as structured, to the system log.
 *
 * To be called first in main, once, before any other thread exists. Messages go to the journal
 * when its socket is there, otherwise to syslog, under `identity`, each with a priority: error,
 * critical and the user level 256 as "err", warning as "warning", message as "notice", info as
 * "info", debug as "debug". Control characters and bytes that are not UTF-8 are escaped ("\n",
 * "\xff") so that a message stays one line. Of a message over 32 KiB the beginning is logged, and
 * how much is missing. When standard error is a terminal, or the environment variable
 * NORQ_LOG_STDERR is "1", each line is written there too, as "identity: priority: message". A log
 * domain is put before the message, in the journal into the field GLIB_DOMAIN. A fatal level
 * (G_LOG_FLAG_FATAL) still aborts. A second call changes nothing.
 *
 * @param identity name under which the lines appear; copied; NULL means the program's name
 */
void nq_log_syslog(const char *identity);

#ifdef __cplusplus
}
#endif

#endif
