#include "confutils/replace_file.h"

#include "confutils/folder.h"
#include "confutils/folder_lock.h"
#include "confutils/step_failure.h"
#include "confutils/temporary_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>

namespace norq::confutils {

namespace {

/** How the new file came to its place, and so how that is undone. */
enum class Placement {
    EXCHANGED, /**< the old file stands at the temporary name: exchange again */
    CREATED,   /**< there was no old file: remove */
    REPLACED,  /**< the old file is gone: cannot be undone */
};

void refuseFolder(int folderFd, const std::string &name)
{
    struct stat status {};
    if (fstatat(folderFd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(status.st_mode)) {
        throw StepFailure{"replace", EISDIR};
    }
}

bool isUnsupported(int code)
{
    return code == EINVAL || code == ENOSYS;
}

/** For a file system that can only rename. */
Placement renameIntoPlace(int folderFd, const std::string &from, const std::string &to)
{
    struct stat status {};
    const bool existed = fstatat(folderFd, to.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    require(renameat(folderFd, from.c_str(), folderFd, to.c_str()) == 0, "replace");
    return existed ? Placement::REPLACED : Placement::CREATED;
}

Placement putIntoPlace(int folderFd, const std::string &from, const std::string &to)
{
    const auto rename = [&](unsigned int flags) {
        return renameat2(folderFd, from.c_str(), folderFd, to.c_str(), flags) == 0;
    };
    refuseFolder(folderFd, to);
    if (rename(RENAME_EXCHANGE)) {
        return Placement::EXCHANGED;
    }
    if (errno == ENOENT && rename(RENAME_NOREPLACE)) {
        return Placement::CREATED;
    }
    if (isUnsupported(errno)) {
        return renameIntoPlace(folderFd, from, to);
    }
    throw StepFailure{"replace", errno};
}

/** Brings the old state back; the new file, if it is out of place again, is `file`'s to remove. */
bool undo(Placement placement, int folderFd, TemporaryFile &file, const std::string &name)
{
    switch (placement) {
    case Placement::EXCHANGED:
        return renameat2(folderFd, file.name().c_str(), folderFd, name.c_str(), RENAME_EXCHANGE) ==
               0;
    case Placement::CREATED:
        file.forget();
        return unlinkat(folderFd, name.c_str(), 0) == 0;
    case Placement::REPLACED:
        break;
    }
    file.forget();
    return false;
}

/** Puts the new file in place for good, or leaves everything as it was. */
void commit(int folderFd, TemporaryFile &file, const std::string &name)
{
    // Taken before the file is closed and with that unlocked, so that no sweep comes in between.
    const FolderLock lock(folderFd);
    file.close();
    const Placement placement = putIntoPlace(folderFd, file.name(), name);
    if (uninterrupted([&] { return fsync(folderFd); }) != 0) {
        const int code = errno;
        if (!undo(placement, folderFd, file, name)) {
            throw StepFailure{"flush the folder of", code, true};
        }
        file.remove();
        static_cast<void>(fsync(folderFd)); // has failed before; what stands there is right anyway
        throw StepFailure{"flush the folder of", code};
    }
    if (placement == Placement::EXCHANGED) {
        file.remove();
    } else {
        file.forget();
    }
}

} // namespace

void replaceFile(std::string_view path, std::string_view contents, unsigned int mode)
{
    const PathParts parts = splitPath(path);
    const FileDescriptor folder = openFolder(parts.folder);
    {
        const FolderLock lock(folder.get());
        if (lock.held()) {
            removeStaleTemporaryFiles(folder.get(), parts.name);
        }
    }
    TemporaryFile file(folder.get(), parts.name);
    file.fill(contents, mode);
    commit(folder.get(), file, parts.name);
}

void sweepTemporaryFiles(std::string_view path)
{
    const PathParts parts = splitPath(path);
    const FileDescriptor folder = openFolder(parts.folder);
    const FolderLock lock(folder.get());
    if (lock.held()) {
        removeStaleTemporaryFiles(folder.get(), parts.name);
    }
}

} // namespace norq::confutils
