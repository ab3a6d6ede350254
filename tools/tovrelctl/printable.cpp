#include "tovrelctl/printable.h"

#include "interfaces/c_handles.h"

#include <glib.h>

namespace tovrelctl {

namespace {

/** Format characters are none: they could turn the text that follows around. */
bool isShown(gunichar character)
{
    switch (g_unichar_type(character)) {
    case G_UNICODE_LINE_SEPARATOR:
    case G_UNICODE_PARAGRAPH_SEPARATOR:
        return false;
    default:
        return g_unichar_isprint(character) != FALSE;
    }
}

std::string escape(gunichar character)
{
    switch (character) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        break;
    }
    glong count = 0;
    const tovrel::CHandle<gunichar2, g_free> units(
        g_ucs4_to_utf16(&character, 1, nullptr, &count, nullptr));
    std::string text;
    for (glong index = 0; index < count; ++index) {
        text += tovrel::GText(g_strdup_printf("\\u%04X", unsigned{units.get()[index]})).get();
    }
    return text;
}

} // namespace

std::string printable(const std::string &text)
{
    const tovrel::GText valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    std::string result;
    for (const char *at = valid.get(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        if (isShown(character)) {
            result.append(at, static_cast<std::size_t>(g_utf8_next_char(at) - at));
        } else {
            result += escape(character);
        }
    }
    return result;
}

} // namespace tovrelctl
