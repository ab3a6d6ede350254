#include "command_line/command_line.h"

#include "command_line/output.h"
#include "command_line/usage_error.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace command_line {

namespace {

struct Free {
    void operator()(char *text) const { g_free(text); }
    void operator()(char **texts) const { g_strfreev(texts); }
    void operator()(GError *error) const { g_error_free(error); }
    void operator()(GOptionContext *context) const { g_option_context_free(context); }
};

using TextArray = std::unique_ptr<char *, Free>;
using ErrorHandle = std::unique_ptr<GError, Free>;
using OptionContext = std::unique_ptr<GOptionContext, Free>;

unsigned int parseNumber(const std::string &option, const std::string &text, unsigned int smallest,
                         unsigned int largest)
{
    unsigned int number = 0;
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, number);
    if (failure != std::errc() || end != last || number < smallest || number > largest) {
        throw UsageError("--" + option + ": '" + text + "' is not a number from " +
                         std::to_string(smallest) + " to " + std::to_string(largest));
    }
    return number;
}

std::vector<std::string> wordsOf(char **words)
{
    std::vector<std::string> result;
    for (char **word = words; word != nullptr && *word != nullptr; ++word) {
        result.emplace_back(*word);
    }
    return result;
}

/** The help of a command in plain ASCII: GLib writes an ellipsis, which not every locale has. */
std::string helpOf(GOptionContext *context)
{
    constexpr std::string_view ELLIPSIS = "\u2026";
    const std::unique_ptr<char, Free> help(g_option_context_get_help(context, TRUE, nullptr));
    std::string text(help.get());
    const std::size_t at = text.find(ELLIPSIS);
    return at == std::string::npos ? text : text.replace(at, ELLIPSIS.size(), "...");
}

/** A vector of pointers as GLib wants it, which may take some of them out. */
TextArray arrayOf(const std::string &first, const std::vector<std::string> &words)
{
    TextArray array(g_new0(char *, words.size() + 2));
    array.get()[0] = g_strdup(first.c_str());
    for (std::size_t index = 0; index < words.size(); ++index) {
        array.get()[index + 1] = g_strdup(words[index].c_str());
    }
    return array;
}

} // namespace

void requireUtf8(const std::vector<std::string> &words)
{
    for (std::size_t index = 0; index < words.size(); ++index) {
        if (g_utf8_validate(words[index].c_str(), -1, nullptr) == FALSE) {
            throw UsageError("argument " + std::to_string(index + 1) + " is not valid UTF-8");
        }
    }
}

CommandLine::CommandLine(std::string programName, std::string command, std::string following,
                         std::string purpose, std::string details)
    : program(std::move(programName)),
      name(std::move(command)),
      arguments(std::move(following)),
      summary(std::move(purpose)),
      description(std::move(details))
{
}

void CommandLine::add(const char *option, const char *argument, const char *help, GOptionArg kind,
                      void *storage)
{
    entries.push_back({option, 0, 0, kind, storage, help, argument});
}

void CommandLine::addTexts(const char *option, const char *argument, const char *help,
                           std::function<void(const std::vector<std::string> &)> take)
{
    textStorage.push_back({nullptr, std::move(take)});
    add(option, argument, help, G_OPTION_ARG_FILENAME_ARRAY, &textStorage.back().values);
}

void CommandLine::flag(const char *option, const char *help, bool &target, char letter)
{
    flagStorage.push_back({FALSE, &target});
    add(option, nullptr, help, G_OPTION_ARG_NONE, &flagStorage.back().value);
    entries.back().short_name = letter;
}

void CommandLine::text(const char *option, const char *argument, const char *help,
                       std::optional<std::string> &target)
{
    addTexts(option, argument, help, [option, &target](const std::vector<std::string> &values) {
        if (values.size() > 1) {
            throw UsageError("--" + std::string(option) + " is given more than once");
        }
        target = values.front();
    });
}

void CommandLine::texts(const char *option, const char *argument, const char *help,
                        std::vector<std::string> &target)
{
    addTexts(option, argument, help,
             [&target](const std::vector<std::string> &values) { target = values; });
}

void CommandLine::number(const char *option, const char *argument, const char *help,
                         unsigned int largest, std::optional<unsigned int> &target,
                         unsigned int smallest)
{
    addTexts(option, argument, help,
             [option, smallest, largest, &target](const std::vector<std::string> &values) {
                 target = parseNumber(option, values.back(), smallest, largest);
             });
}

/** GOption takes "--flag=no" for "--flag". */
void CommandLine::refuseValuesOfFlags(const std::vector<std::string> &words) const
{
    for (auto word = words.begin(); word != words.end() && *word != "--"; ++word) {
        const bool isOption = word->starts_with('-');
        if (isProgramLine && !isOption) {
            return;
        }
        const std::size_t equals = word->find('=');
        const auto entry = std::ranges::find_if(entries, [&](const GOptionEntry &known) {
            return isOption && word->substr(0, equals) == std::string("--") + known.long_name;
        });
        if (entry == entries.end()) {
            continue;
        }
        const bool isFlag = entry->arg == G_OPTION_ARG_NONE;
        if (isFlag && equals != std::string::npos) {
            throw UsageError(word->substr(0, equals) + " takes no value");
        }
        if (!isFlag && equals == std::string::npos && ++word == words.end()) {
            return;
        }
    }
}

std::vector<std::string> CommandLine::parse(const std::vector<std::string> &words)
{
    std::vector<std::string> rest;
    addTexts(G_OPTION_REMAINING, nullptr, nullptr,
             [&rest](const std::vector<std::string> &values) { rest = values; });
    bool help = false;
    if (!isProgramLine) {
        flag("help", "Print this help", help, 'h');
    }
    g_set_prgname(name.empty() ? program.c_str() : (program + " " + name).c_str());
    refuseValuesOfFlags(words);
    entries.push_back({});

    const OptionContext context(g_option_context_new(arguments.c_str()));
    g_option_context_set_summary(context.get(), summary.c_str());
    g_option_context_set_description(context.get(), description.c_str());
    g_option_context_set_strict_posix(context.get(), isProgramLine);
    g_option_context_set_help_enabled(context.get(), FALSE);
    g_option_context_add_main_entries(context.get(), entries.data(), nullptr);

    char **array = arrayOf(name, words).release();
    GError *failure = nullptr;
    const bool understood = g_option_context_parse_strv(context.get(), &array, &failure) != FALSE;
    const TextArray releaseArray(array);
    const ErrorHandle releaseFailure(failure);
    std::vector<TextArray> releaseTexts;
    for (const Texts &texts : textStorage) {
        releaseTexts.emplace_back(texts.values);
    }

    if (!understood) {
        throw UsageError(failure->message);
    }
    for (const Flag &given : flagStorage) {
        *given.target = *given.target || given.value != FALSE;
    }
    if (help) {
        print(helpOf(context.get()));
        std::exit(EXIT_SUCCESS); // NOLINT(concurrency-mt-unsafe): there is no other thread
    }
    for (const Texts &given : textStorage) {
        if (given.values != nullptr) {
            given.take(wordsOf(given.values));
        }
    }
    if (arguments.empty() && !rest.empty()) {
        throw UsageError("'" + rest.front() + "': no argument is expected here");
    }
    return rest;
}

} // namespace command_line
