/** Owner of a file descriptor. */
#pragma once

#include <unistd.h>

#include <utility>

namespace norq {

/** Closes its file descriptor at the end of its life. */
class FileDescriptor {
public:
    /** Owns `number`; a negative one is no file. */
    explicit FileDescriptor(int number = -1) noexcept : fd(number) {}
    FileDescriptor(FileDescriptor &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { close(); }

    /** The number, negative when there is no file. */
    [[nodiscard]] int get() const noexcept { return fd; }
    explicit operator bool() const noexcept { return fd >= 0; }

    /** Gives the ownership away. */
    [[nodiscard]] int release() noexcept { return std::exchange(fd, -1); }

    /** Closes the file now; the result is that of close(2), 0 when there is no file. */
    int close() noexcept { return fd < 0 ? 0 : ::close(std::exchange(fd, -1)); }

private:
    int fd;
};

} // namespace norq
