#include "fakes/fake_confutils.h"

#include "fakes/call_record.h"

#include <norq/confutils.h>

namespace tovrel::test {

FakeConfutils &fakeConfutils()
{
    static FakeConfutils instance;
    return instance;
}

} // namespace tovrel::test

using namespace tovrel::test;

gboolean confutils_set_file_contents_with_sync_mode(const char *path, const char *contents,
                                                    gssize length, int mode, GError **error)
{
    const std::string function = "confutils_set_file_contents_with_sync_mode";
    recordCall(function + " " + path);
    if (fakeConfutils().onWrite) {
        fakeConfutils().onWrite();
    }
    if (shallFail(function)) {
        if (fakeConfutils().failureMessage) {
            g_set_error_literal(error, G_FILE_ERROR, G_FILE_ERROR_FAILED,
                                fakeConfutils().failureMessage->c_str());
        }
        return FALSE;
    }
    const std::string text = length < 0 ? std::string(contents)
                                        : std::string(contents, static_cast<std::size_t>(length));
    fakeConfutils().files[path] = {text, mode};
    return TRUE;
}

void confutils_sweep_temporary_files(const char *path)
{
    recordCall(std::string("confutils_sweep_temporary_files ") + path);
}
