#include "system_log.h"

#include "support/child_process.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <system_error>

namespace {

constexpr std::size_t LARGEST_DATAGRAM = 1024 * 1024;

std::string readFile(int fd)
{
    std::string content;
    struct stat status {};
    if (fstat(fd, &status) == 0) {
        content.resize(static_cast<std::size_t>(status.st_size));
        const ssize_t length = pread(fd, content.data(), content.size(), 0);
        content.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    close(fd);
    return content;
}

/** The descriptor that came along with a message, -1 when there is none. */
int passedFile(msghdr &message)
{
    const cmsghdr *control = CMSG_FIRSTHDR(&message);
    int fd = -1;
    if (control != nullptr && control->cmsg_type == SCM_RIGHTS) {
        std::memcpy(&fd, CMSG_DATA(control), sizeof fd);
    }
    return fd;
}

} // namespace

LogSocket::LogSocket(const std::string &path)
    : fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    std::strcpy(static_cast<char *>(address.sun_path), path.c_str());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the call is made
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

LogSocket::~LogSocket()
{
    close(fd);
}

std::string LogSocket::receive() const
{
    std::string text(LARGEST_DATAGRAM, '\0');
    iovec part{text.data(), text.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t length = -1;
    const bool arrived =
        test_support::waitUntil([&] { return (length = recvmsg(fd, &message, 0)) >= 0; });
    EXPECT_TRUE(arrived) << "no message arrived";
    const int file = arrived ? passedFile(message) : -1;
    text.resize(arrived ? static_cast<std::size_t>(length) : 0);
    return file >= 0 ? readFile(file) : text;
}

bool LogSocket::isEmpty() const
{
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, 0) == 0;
}

std::string SystemLog::run(Present present, const std::vector<std::string> &arguments) const
{
    std::vector<std::string> command{
        BWRAP,    "--die-with-parent",      "--dev-bind", "/",       "/",   "--dev", "/dev",
        "--bind", syslogFolder.file("log"), "/dev/log",   "--tmpfs", "/run"};
    if (present == Present::JOURNAL_AND_SYSLOG) {
        command.insert(command.end(), {"--bind", journalFolder.path(), "/run/systemd/journal"});
    }
    command.emplace_back(LOG_CHILD);
    command.insert(command.end(), arguments.begin(), arguments.end());
    test_support::ChildProcess child(command, {"NORQ_LOG_STDERR=0"});
    EXPECT_EQ(child.waitForExit(test_support::DEADLINE), 0) << child.standardError();
    return child.standardError();
}

std::map<std::string, std::string> journalFields(const std::string &datagram)
{
    std::map<std::string, std::string> fields;
    std::istringstream lines(datagram);
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        EXPECT_NE(equals, std::string::npos) << line;
        fields[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return fields;
}
