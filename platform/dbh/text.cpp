#include "dbh/text.h"

#include <glib.h>

namespace norq::dbh {

namespace {

bool isNoncharacter(gunichar character)
{
    constexpr gunichar FIRST_OF_BLOCK = 0xFDD0;
    constexpr gunichar LAST_OF_BLOCK = 0xFDEF;
    constexpr gunichar LAST_TWO_OF_PLANE = 0xFFFE;
    return (character >= FIRST_OF_BLOCK && character <= LAST_OF_BLOCK) ||
           (character & LAST_TWO_OF_PLANE) == LAST_TWO_OF_PLANE;
}

bool holdsOnlyTextsInside(const json_t *array)
{
    for (std::size_t index = 0; index < json_array_size(array); ++index) {
        if (!holdsOnlyTexts(json_array_get(array, index))) {
            return false;
        }
    }
    return true;
}

bool holdsOnlyTextsInFields(const json_t *object)
{
    // The iterators only read, but their type is that for changing.
    auto *fields = const_cast<json_t *>(object);
    for (void *field = json_object_iter(fields); field != nullptr;
         field = json_object_iter_next(fields, field)) {
        if (!isText(json_object_iter_key(field)) ||
            !holdsOnlyTexts(json_object_iter_value(field))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool isText(const char *text)
{
    if (!g_utf8_validate(text, -1, nullptr)) {
        return false;
    }
    for (; *text != '\0'; text = g_utf8_next_char(text)) {
        if (isNoncharacter(g_utf8_get_char(text))) {
            return false;
        }
    }
    return true;
}

bool holdsOnlyTexts(const json_t *json)
{
    switch (json_typeof(json)) {
    case JSON_STRING:
        return isText(json_string_value(json));
    case JSON_ARRAY:
        return holdsOnlyTextsInside(json);
    case JSON_OBJECT:
        return holdsOnlyTextsInFields(json);
    default:
        return true;
    }
}

} // namespace norq::dbh
