#include "faults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace {

struct Rule {
    Call call;
    int first;
    int last;
    int code;
    std::function<void()> action;
};

constexpr int ALWAYS = 1 << 30;

std::atomic<int> attempts{0};

} // namespace

struct Faults::State {
    std::vector<Rule> rules;
    std::map<Call, int> counts;
    std::optional<std::size_t> mostWritten;
};

namespace {

thread_local Faults::State *current = nullptr;

/** True when the call must fail; errno is set then. */
bool fails(Call call)
{
    if (current == nullptr) {
        return false;
    }
    const int occurrence = ++current->counts[call];
    for (const Rule &rule : std::vector<Rule>(current->rules)) {
        if (rule.call != call || occurrence < rule.first || occurrence > rule.last) {
            continue;
        }
        if (!rule.action) {
            errno = rule.code;
            return true;
        }
        Faults::State *const outer = std::exchange(current, nullptr);
        rule.action();
        current = outer;
    }
    return false;
}

} // namespace

Faults::Faults() : state(new State)
{
    current = state;
}

Faults::~Faults()
{
    current = nullptr;
    delete state;
}

void Faults::fail(Call call, int occurrence, int code)
{
    state->rules.push_back({call, occurrence, occurrence, code, {}});
}

void Faults::failFrom(Call call, int occurrence, int code)
{
    state->rules.push_back({call, occurrence, ALWAYS, code, {}});
}

void Faults::shortenWrites(std::size_t most)
{
    state->mostWritten = most;
}

void Faults::before(Call call, int occurrence, std::function<void()> action)
{
    state->rules.push_back({call, occurrence, occurrence, 0, std::move(action)});
}

int Faults::count(Call call) const
{
    const auto found = state->counts.find(call);
    return found == state->counts.end() ? 0 : found->second;
}

int lockAttempts()
{
    return attempts;
}

// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming)

// What the C library calls them where 32 bits are not enough for times and offsets.
#ifdef __USE_TIME_BITS64
#define __wrap_open __wrap_open64
#define __real_open __real_open64
#define __wrap_openat __wrap_openat64
#define __real_openat __real_openat64
#define __wrap_fstat __wrap___fstat64_time64
#define __real_fstat __real___fstat64_time64
#endif

// The linker gives the calls of all objects in this program these names (option --wrap).
extern "C" {
int __real_open(const char *path, int flags, ...);
int __real_openat(int folder, const char *path, int flags, ...);
int __real_flock(int fd, int operation);
int __real_fstat(int fd, struct stat *status);
ssize_t __real_write(int fd, const void *data, size_t length);
int __real_fchmod(int fd, mode_t mode);
int __real_fsync(int fd);
int __real_close(int fd);
int __real_renameat2(int oldFolder, const char *from, int newFolder, const char *to,
                     unsigned int flags);
int __real_renameat(int oldFolder, const char *from, int newFolder, const char *to);
int __real_unlinkat(int folder, const char *path, int flags);

int __wrap_open(const char *path, int flags, mode_t mode)
{
    return fails(Call::OPEN) ? -1 : __real_open(path, flags, mode);
}

int __wrap_openat(int folder, const char *path, int flags, mode_t mode)
{
    return fails(Call::OPENAT) ? -1 : __real_openat(folder, path, flags, mode);
}

int __wrap_flock(int fd, int operation)
{
    ++attempts;
    return fails(Call::FLOCK) ? -1 : __real_flock(fd, operation);
}

int __wrap_fstat(int fd, struct stat *status)
{
    return fails(Call::FSTAT) ? -1 : __real_fstat(fd, status);
}

ssize_t __wrap_write(int fd, const void *data, size_t length)
{
    if (fails(Call::WRITE)) {
        return -1;
    }
    const bool isShortened = current != nullptr && current->mostWritten;
    return __real_write(fd, data, isShortened ? std::min(length, *current->mostWritten) : length);
}

int __wrap_fchmod(int fd, mode_t mode)
{
    return fails(Call::FCHMOD) ? -1 : __real_fchmod(fd, mode);
}

int __wrap_fsync(int fd)
{
    return fails(Call::FSYNC) ? -1 : __real_fsync(fd);
}

int __wrap_close(int fd)
{
    // As the system does it: also a close that reports an error has closed the file.
    const bool failing = fails(Call::CLOSE);
    const int code = errno;
    const int result = __real_close(fd);
    errno = failing ? code : errno;
    return failing ? -1 : result;
}

int __wrap_renameat2(int oldFolder, const char *from, int newFolder, const char *to,
                     unsigned int flags)
{
    return fails(Call::RENAMEAT2) ? -1 : __real_renameat2(oldFolder, from, newFolder, to, flags);
}

int __wrap_renameat(int oldFolder, const char *from, int newFolder, const char *to)
{
    return fails(Call::RENAMEAT) ? -1 : __real_renameat(oldFolder, from, newFolder, to);
}

int __wrap_unlinkat(int folder, const char *path, int flags)
{
    return fails(Call::UNLINKAT) ? -1 : __real_unlinkat(folder, path, flags);
}
}
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming)
