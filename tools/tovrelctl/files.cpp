#include "tovrelctl/files.h"

#include "interfaces/c_handles.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/held_signals.h"

#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

namespace tovrelctl {

namespace {

using tovrel::ErrorHandle;
using tovrel::OutParameter;
using File = tovrel::CHandle<std::FILE, std::fclose>;

constexpr std::size_t PART_BYTES = 65536;
/** As for any file that a command creates: the umask decides. */
constexpr int FILE_MODE = 0666;

[[noreturn]] void failWith(const std::string &file, int number)
{
    throw Failure(file + ": " + g_strerror(number));
}

/** Why a file could not be written: GLib says so behind a sentence about its temporary file. */
std::string reasonIn(const std::string &message)
{
    const std::size_t colon = message.rfind(": ");
    return colon == std::string::npos ? message : message.substr(colon + 2);
}

std::string readStream(std::FILE *stream, const std::string &name, std::size_t mostBytes)
{
    std::string text;
    std::string part(PART_BYTES, '\0');
    while (const std::size_t got = std::fread(part.data(), 1, part.size(), stream)) {
        text.append(part, 0, got);
        if (text.size() > mostBytes) {
            throw Failure(name + ": larger than " + std::to_string(mostBytes) + " bytes");
        }
    }
    if (std::ferror(stream) != 0) {
        failWith(name, errno);
    }
    return text;
}

} // namespace

std::string readWhole(const std::string &file, std::size_t mostBytes)
{
    if (file == STANDARD_STREAM) {
        return readStream(stdin, "standard input", mostBytes);
    }
    const File opened(std::fopen(file.c_str(), "rbe"));
    if (!opened) {
        failWith(file, errno);
    }
    return readStream(opened.get(), file, mostBytes);
}

void replaceFile(const std::string &file, const std::string &text)
{
    struct stat found {};
    if (lstat(file.c_str(), &found) == 0) {
        if (!S_ISREG(found.st_mode)) {
            throw Failure(file + ": is there and is no regular file",
                          "Name another file, or \"-\" for standard output.");
        }
    } else if (errno != ENOENT) {
        failWith(file, errno);
    }
    const HeldSignals held; // or an interrupted export would leave its temporary file
    ErrorHandle error;
    const auto flags = static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT |
                                                          G_FILE_SET_CONTENTS_DURABLE);
    if (!g_file_set_contents_full(file.c_str(), text.data(), static_cast<gssize>(text.size()),
                                  flags, FILE_MODE, OutParameter(error))) {
        throw Failure(file + ": " + reasonIn(tovrel::errorText(error)));
    }
}

} // namespace tovrelctl
