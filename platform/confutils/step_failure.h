/** How a failing step travels to the public function. */
#pragma once

#include <cerrno>
#include <string>
#include <utility>

namespace norq::confutils {

/** A step of the replacement that failed. */
struct StepFailure {
    /** What was tried, as in "write". */
    const char *step;
    /** The error number that the system gave. */
    int code;
    /** Whether the new content has its place nevertheless. */
    bool newContentInPlace = false;
};

/** Throws the failure of `step` with the current errno unless `succeeded`. */
inline void require(bool succeeded, const char *step)
{
    if (!succeeded) {
        throw StepFailure{step, errno};
    }
}

/** Repeats a system call for as long as signals interrupt it. */
template <typename Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace norq::confutils
