/** The options of one command, on GOption. */
#pragma once

#include <glib.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace command_line {

/** Throws UsageError unless all words are valid UTF-8, as GOption leaves open. */
void requireUtf8(const std::vector<std::string> &words);

/**
 * Collects the options of a command, then parses a command line. The targets are written by
 * parse() and must live until then; a target whose option is not given keeps its value.
 * "--help" prints the help and ends the process with status 0.
 */
class CommandLine {
public:
    /**
     * @param program   the program, shown in the help
     * @param command   the command, shown in usage and errors; empty for the program's own line
     * @param following what follows the options, for the usage line; empty: nothing may follow
     * @param purpose   what the command does, above the options in the help
     * @param details   below the options
     */
    CommandLine(std::string program, std::string command, std::string following,
                std::string purpose, std::string details);

    /** An option without a value; `letter` is its short form, if there is one. */
    void flag(const char *option, const char *help, bool &target, char letter = '\0');
    void text(const char *option, const char *argument, const char *help,
              std::optional<std::string> &target);
    /** An option that may be given several times. */
    void texts(const char *option, const char *argument, const char *help,
               std::vector<std::string> &target);
    /** A decimal number from `smallest` to `largest`. */
    void number(const char *option, const char *argument, const char *help, unsigned int largest,
                std::optional<unsigned int> &target, unsigned int smallest = 0);

    /**
     * For a program's own line, which names a command: parsing stops there, and "--help" is an
     * option like any other.
     */
    void leaveToCaller() { isProgramLine = true; }

    /** Parses; gives what follows the options. Throws UsageError. */
    std::vector<std::string> parse(const std::vector<std::string> &words);

private:
    /** Where GOption puts texts: FILENAME options, since others fail outside of UTF-8 locales. */
    struct Texts {
        char **values = nullptr;
        std::function<void(const std::vector<std::string> &)> take;
    };
    struct Flag {
        gboolean value = FALSE;
        bool *target;
    };

    void add(const char *option, const char *argument, const char *help, GOptionArg kind,
             void *storage);
    void addTexts(const char *option, const char *argument, const char *help,
                  std::function<void(const std::vector<std::string> &)> take);

    void refuseValuesOfFlags(const std::vector<std::string> &words) const;

    std::string program;
    std::string name;
    std::string arguments;
    std::string summary;
    std::string description;
    bool isProgramLine = false;
    std::vector<GOptionEntry> entries;
    std::deque<Texts> textStorage; // a deque: GOption keeps pointers to the elements
    std::deque<Flag> flagStorage;
};

} // namespace command_line
