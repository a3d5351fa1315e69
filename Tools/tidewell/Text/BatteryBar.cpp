#include "Text/BatteryBar.h"

#include "Interfaces/TDWDeviceInfo.h"

#include <langinfo.h>
#include <locale.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace tdw::cli {

namespace {

constexpr std::int64_t kLow = 20;
constexpr std::int64_t kVeryLow = 10;

std::string repeated(std::string_view text, std::int64_t count)
{
    std::string result;
    for (std::int64_t i = 0; i < count; ++i)
        result += text;
    return result;
}

} // namespace

Glyphs glyphsOfLocale()
{
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!locale)
        return Glyphs::Ascii;
    const bool isUtf8 = nl_langinfo_l(CODESET, locale) == std::string_view("UTF-8");
    freelocale(locale);
    return isUtf8 ? Glyphs::Unicode : Glyphs::Ascii;
}

Cell batteryBar(const Value& battery, Glyphs glyphs, std::int64_t cells)
{
    if (battery.boolAt(kTDWHasBattery) == false)
        return { "none" };
    const auto percent = battery.intAt(kTDWBatteryCurrentCapacity);
    if (!percent || *percent < 0 || *percent > 100)
        return { "unknown" };

    // Rounded up, so that only an empty battery has an empty bar.
    const std::int64_t filled = (*percent * cells + 99) / 100;
    const bool isUnicode = glyphs == Glyphs::Unicode;
    const std::string bar
        = repeated(isUnicode ? "█" : "#", filled) + repeated(isUnicode ? "░" : ".", cells - filled);
    const Colour colour = *percent <= kVeryLow ? Colour::Red
        : *percent <= kLow                     ? Colour::Magenta
                                               : Colour::Green;
    const std::string number = std::to_string(*percent);
    return { bar + (cells > 0 ? " " : "") + std::string(3 - number.size(), ' ') + number + " %",
        colour };
}

std::string batteryState(const Value& battery)
{
    const auto isCharging = battery.boolAt(kTDWBatteryIsCharging);
    const auto isConnected = battery.boolAt(kTDWExternalConnected);
    if (isCharging == true)
        return "charging";
    if (battery.boolAt(kTDWFullyCharged) == true)
        return "fully charged";
    if (isConnected == true)
        return "connected to power, not charging";
    if (isConnected == false)
        return "on battery";
    return isCharging == false ? "not charging" : "";
}

} // namespace tdw::cli
