#include "tovrelctl/output.h"

#include "command_line/output.h"
#include "tovrelctl/printable.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <limits>

namespace tovrelctl {

namespace {

constexpr std::size_t USUAL_WIDTH = 80;

bool isTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

} // namespace

void printJson(const json_t *value)
{
    command_line::print(dump(value, true) + '\n');
}

void printText(const std::string &text)
{
    command_line::print((isTerminal() ? printable(text) : text) + '\n');
}

std::size_t outputWidth()
{
    if (!isTerminal()) {
        return std::numeric_limits<std::size_t>::max();
    }
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return USUAL_WIDTH;
    }
    return size.ws_col;
}

void complain(const std::string &text)
{
    std::fprintf(stderr, "tovrelctl: %s\n", printable(text).c_str());
}

void advise(const std::string &lines)
{
    if (!lines.empty()) {
        std::fprintf(stderr, "%s\n", lines.c_str());
    }
}

} // namespace tovrelctl
