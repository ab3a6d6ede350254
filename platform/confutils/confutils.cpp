#include <norq/confutils.h>

#include "confutils/replace_file.h"
#include "confutils/step_failure.h"

#include <cstring>
#include <exception>
#include <memory>
#include <new>

namespace {

using norq::confutils::StepFailure;

constexpr int ALL_PERMISSION_BITS = 07777;

void setError(GError **error, const char *path, const StepFailure &failure)
{
    const std::unique_ptr<char, decltype(&g_free)> shown(
        g_filename_display_name(path != nullptr ? path : "(null)"), g_free);
    g_set_error(error, G_FILE_ERROR, static_cast<gint>(g_file_error_from_errno(failure.code)),
                "Failed to %s \"%s\": %s%s", failure.step, shown.get(), g_strerror(failure.code),
                failure.newContentInPlace ? " (the new content is in place)" : "");
}

bool areValid(const char *path, const char *contents, gssize length, int mode)
{
    return path != nullptr && length >= -1 && (contents != nullptr || length == 0) && mode >= 0 &&
           mode <= ALL_PERMISSION_BITS;
}

} // namespace

gboolean confutils_set_file_contents_with_sync_mode(const char *path, const char *contents,
                                                    gssize length, int mode, GError **error)
{
    if (!areValid(path, contents, length, mode)) {
        setError(error, path, {"use what was given for", EINVAL});
        return FALSE;
    }
    try {
        const std::size_t size = length >= 0 ? static_cast<std::size_t>(length) : strlen(contents);
        norq::confutils::replaceFile(path, {contents, size}, static_cast<unsigned int>(mode));
        return TRUE;
    } catch (const StepFailure &failure) {
        setError(error, path, failure);
    } catch (const std::bad_alloc &) {
        setError(error, path, {"replace", ENOMEM});
    } catch (const std::exception &) {
        setError(error, path, {"replace", EIO}); // no random numbers for a name
    }
    return FALSE;
}

void confutils_sweep_temporary_files(const char *path)
{
    if (path == nullptr) {
        return;
    }
    try {
        norq::confutils::sweepTemporaryFiles(path);
    } catch (const StepFailure &) {
        // Nothing depends on the sweep: what stays is swept another time.
    } catch (const std::exception &) {
        // likewise
    }
}
