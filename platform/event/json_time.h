/** The time of an event as text. */
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace norq::json {

/** "YYYY-MM-DDThh:mm:ss.mmmZ" */
using TimeText = std::array<char, 24>;

/** Overwrites the digits at a place of a text with a number, from its last digit to its first. */
inline void putDigits(TimeText &text, std::size_t first, std::size_t count, unsigned int number)
{
    for (std::size_t index = first + count; index-- > first; number /= 10) {
        text.at(index) = static_cast<char>('0' + number % 10);
    }
}

/**
 * Microseconds since 1970-01-01 UTC as ISO 8601 with milliseconds (cut, not rounded) and "Z".
 * The years 0001 to 9999 are all that the notation has: a time outside is given as the nearest
 * one inside.
 */
inline TimeText utcTimeText(std::int64_t microseconds)
{
    using namespace std::chrono;
    constexpr auto FIRST = sys_days(year(1) / January / 1) + milliseconds(0);
    constexpr auto LAST = sys_days(year(10000) / January / 1) - milliseconds(1);

    const auto wanted = floor<milliseconds>(
        sys_time<std::chrono::microseconds>(std::chrono::microseconds(microseconds)));
    const auto time = std::clamp(wanted, FIRST, LAST);
    const auto midnight = floor<days>(time);
    const year_month_day date(midnight);
    const hh_mm_ss clock(time - midnight);

    TimeText text =
        std::to_array<char, 24>({'0', '0', '0', '0', '-', '0', '0', '-', '0', '0', 'T', '0',
                                 '0', ':', '0', '0', ':', '0', '0', '.', '0', '0', '0', 'Z'});
    const auto number = [](auto count) { return static_cast<unsigned int>(count); };
    putDigits(text, 0, 4, number(static_cast<int>(date.year())));
    putDigits(text, 5, 2, number(date.month()));
    putDigits(text, 8, 2, number(date.day()));
    putDigits(text, 11, 2, number(clock.hours().count()));
    putDigits(text, 14, 2, number(clock.minutes().count()));
    putDigits(text, 17, 2, number(clock.seconds().count()));
    putDigits(text, 20, 3, number(clock.subseconds().count()));
    return text;
}

} // namespace norq::json
