#include "confutils/folder_lock.h"

#include "confutils/step_failure.h"

#include <sys/file.h>

#include <chrono>
#include <thread>

namespace norq::confutils {

namespace {

using namespace std::chrono_literals;

// Many times what a flush takes. Without a bound, whoever may open the folder could hold up
// every writer for good.
constexpr auto LONGEST_WAIT = 30s;
constexpr auto PAUSE = 1ms;

bool lockWithin(int fd, std::chrono::steady_clock::duration wait)
{
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw StepFailure{"lock the folder of", EBUSY};
        }
        std::this_thread::sleep_for(PAUSE);
    }
    return true;
}

} // namespace

FolderLock::FolderLock(int folderFd) : fd(folderFd), locked(lockWithin(folderFd, LONGEST_WAIT)) {}

FolderLock::~FolderLock()
{
    // Not left to the closing: a forked child would hold the lock for as long as it lives.
    if (locked) {
        flock(fd, LOCK_UN);
    }
}

} // namespace norq::confutils
