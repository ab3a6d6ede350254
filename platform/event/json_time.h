/** The time of an event as text. */
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace norq::json {

/** Room for "YYYY-MM-DDThh:mm:ss.mmmZ"; wider than that so that the compiler sees it fits. */
using TimeText = std::array<char, 64>;

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

    TimeText text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return text;
}

} // namespace norq::json
