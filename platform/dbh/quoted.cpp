#include "dbh/quoted.h"

#include <cstring>

namespace norq::dbh {

namespace {

bool continuesCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

} // namespace

Quoted::Quoted(const char *text)
{
    constexpr std::size_t LIMIT = DBH_MAX_QUOTED_LENGTH * LONGEST_CHARACTER;
    std::size_t length = 0;
    int characters = 0;
    // The limit of bytes acts only on what is no UTF-8: there any number of bytes may "continue".
    for (; length < LIMIT && text[length] != '\0'; ++length) {
        if (!continuesCharacter(text[length]) && ++characters > DBH_MAX_QUOTED_LENGTH) {
            break;
        }
    }
    std::memcpy(buffer.data(), text, length);
    if (text[length] != '\0') {
        std::memcpy(buffer.data() + length, "...", sizeof("..."));
    }
}

} // namespace norq::dbh
