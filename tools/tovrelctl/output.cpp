#include "tovrelctl/output.h"

#include "tovrelctl/failure.h"

#include <glib.h>

#include <cerrno>
#include <cstdio>

namespace tovrelctl {

void print(const std::string &text)
{
    if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) != 0) {
        throw Failure(std::string("cannot write: ") + g_strerror(errno));
    }
}

void printJson(const json_t *value)
{
    print(dump(value, true) + '\n');
}

} // namespace tovrelctl
