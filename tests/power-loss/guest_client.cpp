/**
 * The client in the guest: calls the service as it is told by lines on standard input, and marks on
 * the disk itself where it is.
 *
 * usage: power_loss_guest_client DISK OFFSET LOG
 *
 * "call NUMBER CALL" (clients/service_calls.h says how a call is written) writes the mark
 * "begin NUMBER", makes the call, and, once it was answered with success, writes the mark
 * "done NUMBER". "mark TEXT" writes that mark, "rest SECONDS" waits. A mark is one sector, written
 * at OFFSET of the DISK, past the page cache: it is on its way to the disk behind all that was
 * written before, and, as it is never flushed, keeps nothing there that would not be there anyway.
 *
 * After each call a line is appended to LOG, a file on the same disk that nobody flushes, as other
 * programs of a device do.
 *
 * Ends with status 0 when all calls succeeded, and at the first failure with another one.
 */
#include "system/clients/service_calls.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

namespace {

constexpr std::size_t SECTOR = 512;
/** Of what memory must be aligned to, to be written past the page cache. */
constexpr std::size_t ALIGNMENT = 4096;
/** In microseconds; an emulated machine may be slow. */
constexpr std::uint64_t REPLY_LIMIT = 300'000'000;

[[noreturn]] void giveUp(const std::string &why)
{
    std::cerr << why << '\n';
    std::_Exit(1);
}

/** The place of the marks. */
class MarkSector {
public:
    MarkSector(const char *disk, off_t markOffset)
        : fd(open(disk, O_WRONLY | O_DIRECT | O_CLOEXEC)), offset(markOffset)
    {
        clients::require(fd < 0 ? -errno : 0, "open the disk");
    }
    MarkSector(const MarkSector &) = delete;
    MarkSector &operator=(const MarkSector &) = delete;
    ~MarkSector() { close(fd); }

    /** Returns when the disk has completed the write. */
    void write(const std::string &text)
    {
        const std::string content = "power-loss " + text + "\n";
        sector.fill('\0');
        std::copy_n(content.begin(), std::min(content.size(), SECTOR), sector.begin());
        const ssize_t written = pwrite(fd, sector.data(), SECTOR, offset);
        if (written != static_cast<ssize_t>(SECTOR)) {
            giveUp("a mark could not be written");
        }
    }

private:
    int fd;
    off_t offset;
    alignas(ALIGNMENT) std::array<char, SECTOR> sector{};
};

void call(sd_bus *bus, const std::string &line)
{
    const clients::Message request = clients::newCall(bus, line);
    sd_bus_message *raw = nullptr;
    sd_bus_error error{};
    if (sd_bus_call(bus, request.get(), REPLY_LIMIT, &error, &raw) < 0) {
        giveUp(line.substr(0, SECTOR) + ": " + (error.message != nullptr ? error.message : "?"));
    }
    const clients::Message reply(raw, sd_bus_message_unref);
    const std::string answer = clients::describe(reply.get());
    if (answer != "ok 0" && !answer.starts_with(R"(ok {"data":)")) {
        giveUp(line.substr(0, SECTOR) + ": " + answer);
    }
}

void follow(const std::string &line, sd_bus *bus, MarkSector &marks, std::ofstream &log)
{
    const std::size_t blank = line.find(' ');
    const std::string verb = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (verb == "mark") {
        marks.write(rest);
    } else if (verb == "rest") {
        sleep(static_cast<unsigned int>(std::stoul(rest)));
    } else if (verb == "call") {
        const std::size_t end = rest.find(' ');
        const std::string number = rest.substr(0, end);
        marks.write("begin " + number);
        call(bus, rest.substr(end + 1));
        marks.write("done " + number);
        log << "call " << number << " was answered" << std::endl;
    } else {
        giveUp("unknown line: " + line);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        giveUp("usage: power_loss_guest_client DISK OFFSET LOG");
    }
    const clients::Event loop = clients::openEventLoop();
    const clients::Bus bus = clients::openBus(loop.get());
    MarkSector marks(argv[1], std::stol(argv[2]));
    std::ofstream log(argv[3], std::ios::app);
    for (std::string line; std::getline(std::cin, line);) {
        follow(line, bus.get(), marks, log);
    }
}
