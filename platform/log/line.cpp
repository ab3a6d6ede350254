#include "log/line.h"

#include <glib.h>
#include <syslog.h>

#include <array>
#include <utility>

namespace norq::log {

namespace {

/** GLib's first user-defined level: the services' own errors. */
constexpr unsigned int LEVEL_FAILURE = 256;

constexpr gunichar LINE_SEPARATOR = 0x2028;
constexpr gunichar PARAGRAPH_SEPARATOR = 0x2029;

/** From the most to the least severe. */
constexpr std::array<std::pair<unsigned int, int>, 7> PRIORITIES{{
    {G_LOG_LEVEL_ERROR, LOG_ERR},
    {G_LOG_LEVEL_CRITICAL, LOG_ERR},
    {LEVEL_FAILURE, LOG_ERR},
    {G_LOG_LEVEL_WARNING, LOG_WARNING},
    {G_LOG_LEVEL_MESSAGE, LOG_NOTICE},
    {G_LOG_LEVEL_INFO, LOG_INFO},
    {G_LOG_LEVEL_DEBUG, LOG_DEBUG},
}};

void appendEscaped(std::string &line, std::string_view bytes)
{
    constexpr std::string_view DIGITS = "0123456789abcdef";
    for (const char byte : bytes) {
        switch (byte) {
        case '\n':
            line += "\\n";
            break;
        case '\r':
            line += "\\r";
            break;
        case '\t':
            line += "\\t";
            break;
        default:
            const auto value = static_cast<unsigned char>(byte);
            line += "\\x";
            line += DIGITS[value >> 4U];
            line += DIGITS[value & 15U];
        }
    }
}

bool breaksTheLine(gunichar character)
{
    return g_unichar_iscntrl(character) || character == LINE_SEPARATOR ||
           character == PARAGRAPH_SEPARATOR;
}

/** Length of the character that the text begins with; 0 when it is not UTF-8, or would not show. */
std::size_t printableLength(std::string_view text)
{
    const gunichar character =
        g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    constexpr auto NOT_UTF8 = static_cast<gunichar>(-2);
    if (character >= NOT_UTF8 || breaksTheLine(character)) {
        return 0;
    }
    return static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr));
}

/** At most MAX_MESSAGE, and not in the midst of a character. */
std::size_t keptLength(std::string_view message)
{
    constexpr unsigned int CONTINUATION_MASK = 0xC0;
    constexpr unsigned int CONTINUATION = 0x80;
    constexpr std::size_t LONGEST_CHARACTER = 4;
    if (message.size() <= MAX_MESSAGE) {
        return message.size();
    }
    std::size_t length = MAX_MESSAGE;
    while (length > MAX_MESSAGE - LONGEST_CHARACTER &&
           (static_cast<unsigned char>(message[length]) & CONTINUATION_MASK) == CONTINUATION) {
        --length;
    }
    return length;
}

} // namespace

std::string toLine(std::string_view message)
{
    const std::size_t kept = keptLength(message);
    std::string_view rest = message.substr(0, kept);
    std::string line;
    line.reserve(kept);
    while (!rest.empty()) {
        const std::size_t printable = printableLength(rest);
        if (printable > 0) {
            line += rest.substr(0, printable);
        } else {
            appendEscaped(line, rest.substr(0, 1));
        }
        rest.remove_prefix(printable > 0 ? printable : 1);
    }
    if (kept < message.size()) {
        line += "... (" + std::to_string(message.size() - kept) + " bytes more)";
    }
    return line;
}

int priorityOf(unsigned int level)
{
    for (const auto &[bit, priority] : PRIORITIES) {
        if ((level & bit) != 0) {
            return priority;
        }
    }
    return LOG_NOTICE;
}

const char *priorityName(int priority)
{
    switch (priority) {
    case LOG_ERR:
        return "err";
    case LOG_WARNING:
        return "warning";
    case LOG_INFO:
        return "info";
    case LOG_DEBUG:
        return "debug";
    default:
        return "notice";
    }
}

} // namespace norq::log
