/**
 * The temporary file that becomes the new content of a target, beside it in the same folder.
 *
 * Its name tells its target, and its writer holds a lock (flock) on it: a file of such a name that
 * nobody has locked was left by a process that is gone.
 */
#pragma once

#include "posix/file_descriptor.h"

#include <string>
#include <string_view>

namespace norq::confutils {

/** A temporary file; removed at the end of its life unless it was put in place. */
class TemporaryFile {
public:
    /** Creates the file for `targetName`, readable by its owner only; throws a StepFailure. */
    TemporaryFile(int folderFd, const std::string &targetName);
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;
    ~TemporaryFile();

    /** Writes the content, gives it the mode and flushes both to the disk; throws a StepFailure. */
    void fill(std::string_view contents, unsigned int mode) const;

    /** Closes the file, which also ends its lock; throws a StepFailure. */
    void close();

    /** Name within the folder. */
    [[nodiscard]] const std::string &name() const noexcept { return fileName; }

    /** Tells that nothing of this name is left to be removed. */
    void forget() noexcept { fileName.clear(); }

    /** Removes what stands at the name now. */
    void remove() noexcept;

private:
    explicit TemporaryFile(int folderFd) noexcept : folder(folderFd) {}

    int folder;
    std::string fileName;
    FileDescriptor fd;
};

/**
 * Removes the temporary files of `targetName` that no living process is writing. The folder must be
 * locked. Those that cannot be opened or removed stay.
 */
void removeStaleTemporaryFiles(int folderFd, const std::string &targetName);

} // namespace norq::confutils
