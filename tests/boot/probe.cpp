/**
 * Tries what a service must not be able to do, from inside its sandbox: it is run in the service's
 * place, under the unit's settings. A line for each try: its name, and the system's answer. No try
 * changes anything for the ones after it, or for the machine, even where it is not refused.
 *
 *   probe FOLDER      where the service may write
 */
#include <fcntl.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

/** `result` as system calls give it: below zero when refused. */
void tell(const std::string &what, long result)
{
    std::printf("%s: %s\n", what.c_str(), result < 0 ? std::strerror(errno) : "done");
    std::fflush(stdout);
}

/** Tells the result of a call that is made by a process of its own, which ends with it. */
template <typename Call>
void tellApart(const std::string &what, Call call)
{
    const pid_t child = fork();
    if (child == 0) {
        tell(what, call());
        _exit(EXIT_SUCCESS);
    }
    if (child < 0 || waitpid(child, nullptr, 0) != child) {
        tell(what, -1);
    }
}

void tellOpen(const std::string &what, const std::string &path, int flags)
{
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC, 0600);
    tell(what, descriptor);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void tellWrite(const std::string &folder)
{
    const std::string path = folder + "/probe";
    tellOpen("write in " + folder, path, O_CREAT | O_WRONLY);
    unlink(path.c_str());
}

void tellSocket(const char *what, int family, int type, int protocol)
{
    const int descriptor = socket(family, type, protocol);
    tell(what, descriptor);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

/** Whether a second process comes to run the program; it is ended at once. */
void tellProgram(const std::string &path)
{
    std::array<int, 2> failure{};
    if (pipe2(failure.data(), O_CLOEXEC) < 0) {
        std::exit(EXIT_FAILURE);
    }
    const pid_t child = fork();
    if (child == 0) {
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            dup2(nothing, stream);
        }
        execl(path.c_str(), path.c_str(), static_cast<char *>(nullptr));
        const int error = errno;
        _exit(write(failure[1], &error, sizeof error) == sizeof error ? 0 : 1);
    }
    close(failure[1]);
    int error = 0;
    const bool refused = read(failure[0], &error, sizeof error) == sizeof error;
    close(failure[0]);
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        errno = error;
    }
    tell("run " + path, child < 0 || refused ? -1 : 0);
}

void tellMemory()
{
    void *const memory =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    tell("memory to write and run", memory == MAP_FAILED ? -1 : 0);
}

void tellMount(const char *folder)
{
    const int result = mount("none", folder, "tmpfs", 0, nullptr);
    tell("mount", result);
    if (result == 0) {
        umount2(folder, MNT_DETACH);
    }
}

void tellSetUserId(const std::string &folder)
{
    const std::string path = folder + "/program";
    const int descriptor = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, S_IRWXU);
    tell("set-user-id file", descriptor < 0 ? -1 : fchmod(descriptor, S_ISUID | S_IRWXU));
    close(descriptor);
    unlink(path.c_str());
}

/** The name that it has already. */
void tellHostName()
{
    std::array<char, 65> name{};
    gethostname(name.data(), name.size() - 1);
    tell("host name", sethostname(name.data(), std::strlen(name.data())));
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        return EXIT_FAILURE;
    }
    tellWrite(argv[1]);
    for (const char *const folder :
         {"/etc/open", "/etc/norq/open", "/usr/lib/open", "/var/lib/open", "/run/open", "/dev/shm",
          "/dev/mqueue", "/tmp", "/var/tmp", "/root", "/home"}) {
        tellWrite(folder);
    }
    tellOpen("read the password of the broker", "/etc/norq/mqtt.conf", O_RDONLY);
    tellOpen("read the passwords of users", "/etc/shadow", O_RDONLY);
    tellOpen("look at the first process", "/proc/1/status", O_RDONLY);
    tellOpen("look at the kernel", "/proc/version", O_RDONLY);
    tellOpen("look at the kernel's modules", "/usr/lib/modules/open", O_RDONLY);
    tellOpen("open a device", "/dev/open", O_RDONLY);
    tellOpen("read the kernel's log", "/dev/kmsg", O_RDONLY);

    for (const char *const program : {"/bin/true", "/bin/sh", "/usr/bin/busctl"}) {
        tellProgram(program);
    }

    tellSocket("local socket", AF_UNIX, SOCK_STREAM, 0);
    tellSocket("internet socket", AF_INET, SOCK_STREAM, 0);
    tellSocket("internet socket 6", AF_INET6, SOCK_STREAM, 0);
    tellSocket("raw socket", AF_INET, SOCK_RAW, 1);
    tellSocket("netlink socket", AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    tellSocket("packet socket", AF_PACKET, SOCK_RAW, 0);

    tellMemory();
    tellMount(argv[1]);
    tellSetUserId(argv[1]);
    tellHostName();
    tellApart("new user namespace", [] { return unshare(CLONE_NEWUSER); });
    tellApart("new mount namespace", [] { return unshare(CLONE_NEWNS); });
    tellApart("become root", [] { return setuid(0); });
    tellApart("real time", [] {
        const sched_param urgent{.sched_priority = 1};
        return sched_setscheduler(0, SCHED_FIFO, &urgent);
    });
    // Without a time, a module or a request, so that the kernel has a reason of its own to refuse.
    tell("clock", syscall(SYS_clock_settime, CLOCK_REALTIME, nullptr));
    tell("load a module", syscall(SYS_init_module, nullptr, 0, nullptr));
    tell("ask for the kernel's log", syscall(SYS_syslog, -1, nullptr, 0));
    return EXIT_SUCCESS;
}
