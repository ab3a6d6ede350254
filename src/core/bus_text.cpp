#include "core/bus_text.h"

#include "interfaces/c_handles.h"

#include <glib.h>

#include <array>
#include <cstdio>

namespace tovrel {

namespace {

bool isNoncharacter(gunichar character)
{
    constexpr gunichar FIRST_OF_BLOCK = 0xFDD0;
    constexpr gunichar LAST_OF_BLOCK = 0xFDEF;
    constexpr gunichar LAST_TWO_OF_PLANE = 0xFFFE;
    return (character >= FIRST_OF_BLOCK && character <= LAST_OF_BLOCK) ||
           (character & LAST_TWO_OF_PLANE) == LAST_TWO_OF_PLANE;
}

/** A copy of valid UTF-8 with `substitute` of each noncharacter in its place. */
template <typename Substitute>
std::string replaceNoncharacters(const char *text, Substitute substitute)
{
    std::string result;
    const char *uncopied = text;
    const char *place = text;
    while (*place != '\0') {
        const gunichar character = g_utf8_get_char(place);
        const char *const next = g_utf8_next_char(place);
        if (isNoncharacter(character)) {
            result.append(uncopied, place).append(substitute(character));
            uncopied = next;
        }
        place = next;
    }
    return result.append(uncopied);
}

/** One unit of UTF-16 as JSON writes it. */
std::string escapedUnit(gunichar unit)
{
    std::array<char, sizeof("\\uffff")> text{};
    std::snprintf(text.data(), text.size(), "\\u%04x", unit);
    return text.data();
}

std::string escaped(gunichar character)
{
    constexpr gunichar SECOND_PLANE = 0x10000;
    constexpr gunichar HIGH_SURROGATE = 0xD800;
    constexpr gunichar LOW_SURROGATE = 0xDC00;
    constexpr unsigned int LOW_BITS = 10;
    constexpr gunichar LOW_MASK = 0x3FF;
    if (character < SECOND_PLANE) {
        return escapedUnit(character);
    }
    const gunichar offset = character - SECOND_PLANE;
    return escapedUnit(HIGH_SURROGATE + (offset >> LOW_BITS)) +
           escapedUnit(LOW_SURROGATE + (offset & LOW_MASK));
}

} // namespace

std::string sendableText(const char *text)
{
    const GText valid(g_utf8_make_valid(text, -1));
    return replaceNoncharacters(valid.get(), [](gunichar) { return "\uFFFD"; });
}

std::string sendableJson(const char *json)
{
    return replaceNoncharacters(json, escaped);
}

} // namespace tovrel
