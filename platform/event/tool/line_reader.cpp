#include "event/tool/line_reader.h"

#include "event/tool/failure.h"

#include <glib.h>

#include <unistd.h>

#include <array>
#include <cerrno>

namespace norq::tool {

bool LineReader::readOnce(const std::function<void(const std::string &)> &take)
{
    std::array<char, 4096> chunk;
    const ssize_t count = read(source, chunk.data(), chunk.size());
    if (count < 0) {
        if (errno == EINTR || errno == EAGAIN) {
            return true;
        }
        throw Failure(std::string("cannot read standard input: ") + g_strerror(errno));
    }
    if (count == 0) {
        if (!buffer.empty()) {
            take(buffer);
            buffer.clear();
        }
        return false;
    }
    buffer.append(chunk.data(), static_cast<std::size_t>(count));
    takeLines(take);
    return true;
}

void LineReader::takeLines(const std::function<void(const std::string &)> &take)
{
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = buffer.find('\n', start);
        if (end == std::string::npos) {
            break;
        }
        take(buffer.substr(start, end - start));
        start = end + 1;
    }
    buffer.erase(0, start);
    if (buffer.size() > LONGEST) {
        throw Failure("a line of standard input is longer than " + std::to_string(LONGEST) +
                      " bytes");
    }
}

} // namespace norq::tool
