/** Texts of requests in error messages. */
#pragma once

#include <norq/dbh_error.h>

#include <array>

namespace norq::dbh {

/** The first DBH_MAX_QUOTED_LENGTH characters of a text, which need not be valid UTF-8. */
class Quoted {
public:
    explicit Quoted(const char *text);

    const char *text() const { return buffer.data(); }

private:
    static constexpr std::size_t LONGEST_CHARACTER = 4;

    std::array<char, DBH_MAX_QUOTED_LENGTH * LONGEST_CHARACTER + sizeof("...")> buffer{};
};

} // namespace norq::dbh
