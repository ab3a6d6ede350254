/**
 * Tries what a service must not be able to do, from inside its sandbox: it is run in the service's
 * place, under the unit's settings. A line for each try: its name, and the system's answer.
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

#include <cerrno>
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

/** What a second process says of its own start; it ends with the number of the error. */
void tellProgram(const char *path)
{
    const pid_t child = fork();
    if (child == 0) {
        execl(path, path, static_cast<char *>(nullptr));
        _exit(errno);
    }
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child) {
        errno = WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
        tell(std::string("run ") + path, errno == 0 ? 0 : -1);
    } else {
        tell(std::string("run ") + path, -1);
    }
}

void tellMemory()
{
    void *const memory =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    tell("memory to write and run", memory == MAP_FAILED ? -1 : 0);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        return EXIT_FAILURE;
    }
    tellWrite(argv[1]);
    for (const char *const folder :
         {"/etc", "/etc/norq", "/usr/lib", "/var/lib", "/run", "/dev/shm", "/dev/mqueue", "/tmp",
          "/var/tmp", "/run/open", "/var/lib/open", "/root", "/home"}) {
        tellWrite(folder);
    }
    tellOpen("read the password of the broker", "/etc/norq/mqtt.conf", O_RDONLY);
    tellOpen("read the passwords of users", "/etc/shadow", O_RDONLY);
    tellOpen("look at the first process", "/proc/1/status", O_RDONLY);
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
    tell("new user namespace", unshare(CLONE_NEWUSER));
    tell("new mount namespace", unshare(CLONE_NEWNS));
    tell("mount", mount("none", argv[1], "tmpfs", 0, nullptr));
    tell("become root", setuid(0));
    const sched_param urgent{.sched_priority = 1};
    tell("real time", sched_setscheduler(0, SCHED_FIFO, &urgent));
    tell("set-user-id file", chmod(argv[1], S_ISUID | S_IRWXU));
    tell("host name", sethostname("probe", 5));
    const timespec beginning{};
    tell("clock", clock_settime(CLOCK_REALTIME, &beginning));
    tell("load a module", syscall(SYS_init_module, nullptr, 0, ""));
    return EXIT_SUCCESS;
}
