/**
 * Saves a file from a process of its own, for tests that kill or disturb the process.
 *
 *   save_file UMASK PATH LETTER LENGTH [TURNS]   saves LENGTH times LETTER in mode 0640
 *   save_file --sweep PATH                       sweeps
 *
 * Exit status 0 on success, 1 with the error on standard error, 2 for wrong usage.
 */
#include <norq/confutils.h>

#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int MODE = 0640;

template <typename Number>
Number parse(std::string_view text, int base)
{
    Number number{};
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

int save(const std::string &path, const std::string &content, int turns)
{
    for (int turn = 0; turn < turns; ++turn) {
        GError *error = nullptr;
        if (!confutils_set_file_contents_with_sync_mode(
                path.c_str(), content.data(), static_cast<gssize>(content.size()), MODE, &error)) {
            std::fputs(error->message, stderr);
            g_error_free(error);
            return 1;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 2 && arguments[0] == "--sweep") {
        confutils_sweep_temporary_files(arguments[1].c_str());
        return 0;
    }
    if (arguments.size() < 4) {
        return 2;
    }
    umask(parse<mode_t>(arguments[0], 8));
    const std::string content(parse<std::size_t>(arguments[3], 10), arguments[2].front());
    return save(arguments[1], content, arguments.size() > 4 ? parse<int>(arguments[4], 10) : 1);
}
