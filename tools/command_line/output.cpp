#include "command_line/output.h"

#include <glib.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace command_line {

void print(const std::string &text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        throw std::runtime_error(std::string("cannot write: ") + g_strerror(errno));
    }
}

} // namespace command_line
