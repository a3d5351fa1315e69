#include "Terminal/Encoding.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace tdw::cli {

std::string base64(std::span<const std::byte> bytes)
{
    constexpr std::string_view kDigits
        = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    result.reserve((bytes.size() + 2) / 3 * 4);
    for (; !bytes.empty(); bytes = bytes.subspan(std::min<std::size_t>(3, bytes.size()))) {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = (bits << 8) | (i < bytes.size() ? std::to_integer<std::uint32_t>(bytes[i]) : 0);
        for (std::size_t i = 0; i < 4; ++i)
            result += i <= bytes.size() ? kDigits[(bits >> (18 - 6 * i)) & 0x3F] : '=';
    }
    return result;
}

std::string iso8601(Date date)
{
    using namespace std::chrono;
    const auto day = floor<days>(date);
    // The calendar of the standard library knows some 32,000 years; a date outside of them is
    // damaged, and shown as the count that it is.
    if (day < sys_days { year::min() / January / 1 }
        || day > sys_days { year::max() / December / 31 })
        return std::to_string(date.time_since_epoch().count()) + " microseconds since 1970";

    const year_month_day calendar { day };
    const hh_mm_ss time { date - day };
    const int yearNumber = int { calendar.year() };
    const char* const format = yearNumber < 0 || yearNumber > 9999
        ? "%+06d-%02u-%02uT%02d:%02d:%02d"
        : "%04d-%02u-%02uT%02d:%02d:%02d";
    std::array<char, 64> text {};
    std::snprintf(text.data(), text.size(), format, yearNumber, unsigned { calendar.month() },
        unsigned { calendar.day() }, static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
    std::string result = text.data();
    if (const auto fraction = time.subseconds().count(); fraction != 0) {
        std::snprintf(text.data(), text.size(), ".%06d", static_cast<int>(fraction));
        result += text.data();
    }
    return result + "Z";
}

} // namespace tdw::cli
