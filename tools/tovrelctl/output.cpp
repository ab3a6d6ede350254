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

std::string printableLines(const std::string &text)
{
    std::string result;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        result += printable(text.substr(begin, end - begin)) + '\n';
    }
    return result;
}

} // namespace

void printJson(const json_t *value)
{
    const std::string text = dump(value, true) + '\n';
    command_line::print(isTerminal() ? printableLines(text) : text);
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
