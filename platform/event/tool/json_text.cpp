#include "event/tool/json_text.h"

#include "event/tool/failure.h"
#include "event/tool/handles.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace norq::tool {

namespace {

constexpr std::size_t READABLE_DIGITS = 15;
constexpr std::size_t ALL_DIGITS = 17;

std::string encode(const json_t *value, std::size_t digits)
{
    const MallocText text(json_dumps(value, JSON_ENCODE_ANY | JSON_REAL_PRECISION(digits)));
    if (!text) {
        throw Failure("a value cannot be written");
    }
    return text.get();
}

bool isPlain(char character)
{
    return g_ascii_isalnum(character) || character == '-' || character == '_' || character == '.';
}

bool breaksWords(char character)
{
    return character == '"' || g_ascii_isspace(character) || g_ascii_iscntrl(character);
}

} // namespace

std::string valueText(const json_t *value)
{
    std::string text = encode(value, READABLE_DIGITS);
    const bool exact =
        !json_is_real(value) || g_ascii_strtod(text.c_str(), nullptr) == json_real_value(value);
    return exact ? text : encode(value, ALL_DIGITS);
}

std::string nameText(const char *name)
{
    const std::string_view word = name;
    if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) {
        return name;
    }
    const Json value(json_string(name));
    return valueText(value.get());
}

std::string topicText(const json_t *topic)
{
    const std::string_view text = json_string_value(topic);
    const bool quoted = text.empty() || std::any_of(text.begin(), text.end(), breaksWords);
    return quoted ? valueText(topic) : std::string(text);
}

} // namespace norq::tool
