#include "confutils/temporary_file.h"

#include "confutils/step_failure.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <vector>

namespace norq::confutils {

namespace {

constexpr int MOST_NAMES_TRIED = 100;
constexpr std::size_t SUFFIX_LENGTH = 16;
/** Longer names of targets are shortened so that the temporary name fits into NAME_MAX. */
constexpr std::size_t LONGEST_FULL_NAME = 200;
constexpr std::size_t SHORTENED_NAME = 150;

using Directory = std::unique_ptr<DIR, decltype([](DIR *dir) { closedir(dir); })>;

/** What all temporary names of a target begin with. */
std::string temporaryPrefix(const std::string &targetName)
{
    std::string stem = targetName;
    if (stem.size() > LONGEST_FULL_NAME) {
        const std::unique_ptr<char, decltype(&g_free)> digest(
            g_compute_checksum_for_string(G_CHECKSUM_SHA256, targetName.c_str(), -1), g_free);
        stem = targetName.substr(0, SHORTENED_NAME) + '~' +
               std::string(digest.get()).substr(0, SUFFIX_LENGTH);
    }
    return "." + stem + ".norq-";
}

bool isTemporaryName(std::string_view name, std::string_view prefix)
{
    return name.size() == prefix.size() + SUFFIX_LENGTH && name.starts_with(prefix) &&
           std::ranges::all_of(name.substr(prefix.size()),
                               [](char c) { return g_ascii_isxdigit(c); });
}

std::string randomSuffix()
{
    constexpr std::string_view DIGITS = "0123456789abcdef";
    std::random_device source;
    std::uniform_int_distribution<std::size_t> digit(0, DIGITS.size() - 1);
    std::string suffix;
    std::generate_n(std::back_inserter(suffix), SUFFIX_LENGTH,
                    [&] { return DIGITS[digit(source)]; });
    return suffix;
}

/**
 * Locks a file that was just created. A sweep may have come between creation and lock, has taken
 * the file for one left behind, and removes it: then the result is false.
 */
bool lockCreatedFile(int fd)
{
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return false;
    }
    struct stat status {};
    require(fstat(fd, &status) == 0, "look at the temporary file for");
    return status.st_nlink > 0;
}

/** The names in a folder, read through a descriptor of their own; empty when they cannot be. */
std::vector<std::string> namesIn(int folderFd)
{
    FileDescriptor fd(openat(folderFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Directory directory(fd ? fdopendir(fd.get()) : nullptr);
    if (!directory) {
        return {};
    }
    static_cast<void>(fd.release()); // the directory owns it now
    std::vector<std::string> names;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): safe as long as each thread has its own DIR
    while (const dirent *entry = readdir(directory.get())) {
        names.emplace_back(static_cast<const char *>(entry->d_name));
    }
    return names;
}

/** Whether the file at `name` is nobody's any more. Its lock, once taken, stays with `holder`. */
bool isStale(int folderFd, const char *name, FileDescriptor &holder)
{
    struct stat status {};
    if (fstatat(folderFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        // Never written by us: the former thing at the target's name, swapped out by a process
        // that was then killed.
        return !S_ISDIR(status.st_mode);
    }
    holder = FileDescriptor(
        openat(folderFd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return holder && flock(holder.get(), LOCK_EX | LOCK_NB) == 0;
}

} // namespace

// The delegation makes the object whole before anything can fail, so that the destructor cleans up.
TemporaryFile::TemporaryFile(int folderFd, const std::string &targetName) : TemporaryFile(folderFd)
{
    const std::string prefix = temporaryPrefix(targetName);
    for (int tries = 0; tries < MOST_NAMES_TRIED; ++tries) {
        std::string candidate = prefix + randomSuffix();
        FileDescriptor created(uninterrupted([&] {
            return openat(folderFd, candidate.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
        }));
        if (!created && errno == EEXIST) {
            continue;
        }
        require(static_cast<bool>(created), "create a temporary file for");
        fileName = std::move(candidate);
        fd = std::move(created);
        if (lockCreatedFile(fd.get())) {
            return;
        }
        remove();
    }
    throw StepFailure{"create a temporary file for", EEXIST};
}

TemporaryFile::~TemporaryFile()
{
    remove();
}

void TemporaryFile::fill(std::string_view contents, unsigned int mode) const
{
    while (!contents.empty()) {
        const ssize_t written =
            uninterrupted([&] { return ::write(fd.get(), contents.data(), contents.size()); });
        require(written >= 0, "write");
        if (written == 0) {
            throw StepFailure{"write", EIO};
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    // After the writing, which takes away the set-id bits; before the flush, which takes the mode
    // along.
    require(fchmod(fd.get(), mode) == 0, "set the mode of");
    require(uninterrupted([&] { return fsync(fd.get()); }) == 0, "flush");
}

void TemporaryFile::close()
{
    // Interrupted or not, Linux has closed the file then, and its content is on the disk already.
    require(fd.close() == 0 || errno == EINTR, "close");
}

void TemporaryFile::remove() noexcept
{
    if (!fileName.empty()) {
        unlinkat(folder, fileName.c_str(), 0);
        fileName.clear();
    }
    static_cast<void>(fd.close());
}

void removeStaleTemporaryFiles(int folderFd, const std::string &targetName)
{
    const std::string prefix = temporaryPrefix(targetName);
    for (const std::string &name : namesIn(folderFd)) {
        if (FileDescriptor lock;
            isTemporaryName(name, prefix) && isStale(folderFd, name.c_str(), lock)) {
            unlinkat(folderFd, name.c_str(), 0);
        }
    }
}

} // namespace norq::confutils
