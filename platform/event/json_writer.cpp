#include "event/json_writer.h"

#include "event/json_handles.h"

#include <array>
#include <utility>

namespace norq::json {
namespace {

/** How many bytes at the start of a text stand for themselves. */
std::size_t plainLength(std::string_view text)
{
    std::size_t length = 0;
    while (length < text.size() && static_cast<unsigned char>(text[length]) >= 0x20 &&
           text[length] != '"' && text[length] != '\\') {
        ++length;
    }
    return length;
}

bool isAscii(std::string_view text)
{
    unsigned char bits = 0;
    for (const char character : text) {
        bits |= static_cast<unsigned char>(character);
    }
    return bits < 0x80;
}

void appendEscaped(std::string &target, char character)
{
    constexpr std::string_view HEX = "0123456789ABCDEF";
    constexpr std::string_view NAMED = "\"\\\b\f\n\r\t";
    constexpr std::string_view NAMES = "\"\\bfnrt";
    target += '\\';
    if (const auto index = NAMED.find(character); index != std::string_view::npos) {
        target += NAMES[index];
        return;
    }
    const auto code = static_cast<unsigned char>(character);
    target += "u00";
    target += HEX[code >> 4U];
    target += HEX[code & 0xfU];
}

void appendQuoted(std::string &target, std::string_view text)
{
    if (!isAscii(text) && g_utf8_validate_len(text.data(), text.size(), nullptr) == FALSE) {
        throw RenderError("a text is not valid UTF-8");
    }
    target += '"';
    while (!text.empty()) {
        const std::size_t plain = plainLength(text);
        target.append(text, 0, plain);
        text.remove_prefix(plain);
        if (!text.empty()) {
            appendEscaped(target, text.front());
            text.remove_prefix(1);
        }
    }
    target += '"';
}

} // namespace

void ObjectWriter::beginMember(std::string_view name)
{
    if (text.size() > 1) {
        text += ',';
    }
    appendQuoted(text, name);
    text += ':';
}

void ObjectWriter::addText(std::string_view name, std::string_view value)
{
    beginMember(name);
    appendQuoted(text, value);
}

void ObjectWriter::addBoolean(std::string_view name, bool value)
{
    beginMember(name);
    text += value ? "true" : "false";
}

void ObjectWriter::addNumber(std::string_view name, std::string_view decimal)
{
    beginMember(name);
    text += decimal;
}

void ObjectWriter::addObject(std::string_view name, ObjectWriter &&object)
{
    beginMember(name);
    text += std::move(object).finish();
}

std::string ObjectWriter::finish() &&
{
    text += '}';
    return std::move(text);
}

std::string decimalOf(double number, std::size_t digits)
{
    std::array<char, 64> buffer{};
    const Json value = owned(json_real(number));
    const std::size_t size = json_dumpb(value.get(), buffer.data(), buffer.size(),
                                        JSON_ENCODE_ANY | JSON_REAL_PRECISION(digits));
    if (size == 0 || size > buffer.size()) {
        throw RenderError("a number cannot be written");
    }
    return {buffer.data(), size};
}

} // namespace norq::json
