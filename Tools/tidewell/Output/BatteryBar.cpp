#include "Output/BatteryBar.h"

#include "Interfaces/TDWDeviceInfo.h"

#include <langinfo.h>
#include <locale.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace tdw::cli {

namespace {

constexpr std::int64_t kCells = 20;
constexpr std::int64_t kLow = 20;
constexpr std::int64_t kVeryLow = 10;

const Value* field(const Value& battery, std::string_view key)
{
    const Dictionary* fields = battery.asDictionary();
    return fields ? fields->find(key) : nullptr;
}

std::optional<bool> flag(const Value& battery, std::string_view key)
{
    const Value* value = field(battery, key);
    return value ? value->asBoolean() : std::nullopt;
}

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

Cell batteryBar(const Value& battery, Glyphs glyphs)
{
    if (flag(battery, kTDWHasBattery) == false)
        return { "none" };
    const Value* capacity = field(battery, kTDWBatteryCurrentCapacity);
    const auto percent = capacity ? capacity->asInt64() : std::nullopt;
    if (!percent || *percent < 0 || *percent > 100)
        return { "unknown" };

    // Rounded up, so that only an empty battery has an empty bar.
    const std::int64_t filled = (*percent * kCells + 99) / 100;
    const bool isUnicode = glyphs == Glyphs::Unicode;
    const std::string bar = repeated(isUnicode ? "█" : "#", filled)
        + repeated(isUnicode ? "░" : ".", kCells - filled);
    const Colour colour = *percent <= kVeryLow ? Colour::Red
        : *percent <= kLow                     ? Colour::Yellow
                                               : Colour::Green;
    return { bar + " " + std::to_string(*percent) + " %", colour };
}

std::string batteryState(const Value& battery)
{
    const auto isCharging = flag(battery, kTDWBatteryIsCharging);
    const auto isConnected = flag(battery, kTDWExternalConnected);
    if (isCharging == true)
        return "charging";
    if (flag(battery, kTDWFullyCharged) == true)
        return "fully charged";
    if (isConnected == true)
        return "connected to power, not charging";
    if (isConnected == false)
        return "on battery";
    return isCharging == false ? "not charging" : "";
}

} // namespace tdw::cli
