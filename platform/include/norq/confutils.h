/** Configuration files that are replaced whole or not at all. */
#ifndef NORQ_CONFUTILS_H
#define NORQ_CONFUTILS_H

#include <glib.h>

G_BEGIN_DECLS

/**
 * Replaces the content of a file durably.
 *
 * Writes a temporary file in the same folder, flushes it to the disk, gives it its mode, puts it
 * in the place of `path` and flushes the folder. When it returns TRUE the new content survives a
 * power cut. When it returns FALSE the old file is in place, untouched, and no temporary file
 * stays. (One exception: where the file system cannot exchange two files, a failing flush of the
 * folder is reported with the new content already in place.) Temporary files of `path` left by a
 * killed process are swept on the way.
 *
 * A symbolic link at `path` is replaced, not followed. The owner is that of the process. Blocks
 * for the duration of the disk's flushes. May be called on any thread; two writers of one path
 * never mix their contents, the last rename wins.
 *
 * @param path     file to replace; its folder must exist
 * @param contents `length` bytes; may be NULL when the length is 0
 * @param length   number of bytes, or -1 for the length of a NUL-terminated text
 * @param mode     permission bits of the new file, exactly (the umask is not applied), 0 to 07777
 * @param error    set on failure, in the domain G_FILE_ERROR, with the failing step, the path and
 *                 the system's reason in its message; may be NULL
 */
gboolean confutils_set_file_contents_with_sync_mode(const char *path, const char *contents,
                                                    gssize length, int mode, GError **error);

/**
 * Removes temporary files of `path` that a killed process left behind; one that a living process
 * is still writing is left alone. To be called before `path` is loaded. Failures are not reported.
 *
 * A device's own library must provide this function too, because the service calls it; an empty one
 * will do, as long as confutils_set_file_contents_with_sync_mode() sweeps on the way.
 */
void confutils_sweep_temporary_files(const char *path);

G_END_DECLS

#endif
