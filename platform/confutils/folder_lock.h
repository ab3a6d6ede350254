/**
 * Mutual exclusion of everyone who changes which file stands at a name of a folder.
 *
 * Putting a new file in place takes several steps that are undone at a failure. Two writers in the
 * midst of them could undo each other's success, and a sweep could take away the old file that is
 * needed for the undoing. Writing the temporary file needs no lock of the folder.
 */
#pragma once

namespace norq::confutils {

/** Holds the advisory lock (flock) of an open folder. */
class FolderLock {
public:
    /**
     * Waits for the lock, half a minute at most, and throws a StepFailure (EBUSY) after that. On a
     * file system without locks of folders it goes on without one.
     */
    explicit FolderLock(int folderFd);
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;
    ~FolderLock();

    /** Whether the lock is really held. */
    [[nodiscard]] bool held() const noexcept { return locked; }

private:
    int fd;
    bool locked;
};

} // namespace norq::confutils
