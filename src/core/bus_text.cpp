#include "core/bus_text.h"

#include "interfaces/c_handles.h"

#include <glib.h>

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

} // namespace

std::string sendableText(const char *text)
{
    const GText valid(g_utf8_make_valid(text, -1));
    std::string sendable;
    const char *place = valid.get();
    while (*place != '\0') {
        const char *const next = g_utf8_next_char(place);
        if (isNoncharacter(g_utf8_get_char(place))) {
            sendable.append("\uFFFD");
        } else {
            sendable.append(place, next);
        }
        place = next;
    }
    return sendable;
}

} // namespace tovrel
