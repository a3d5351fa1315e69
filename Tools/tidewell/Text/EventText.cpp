#include "Text/EventText.h"

#include "Devices/DeviceList.h"
#include "Interfaces/TDWDeviceList.h"
#include "Platform/Values/Utf8.h"

#include <array>
#include <chrono>
#include <ctime>

namespace tdw::cli {

namespace {

using Type = DeviceEvent::Type;

std::string_view wordFor(Type type)
{
    switch (type) {
    case Type::Attached:
        return "attached";
    case Type::Detached:
        return "detached";
    default:
        return "paired";
    }
}

Colour colourFor(Type type)
{
    return type == Type::Attached ? Colour::Green
        : type == Type::Detached  ? Colour::Magenta
                                  : Colour::Bold;
}

std::string localTime(Date date)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local {};
    localtime_r(&time, &local);
    std::array<char, 64> text {};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return { text.data(), length };
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

} // namespace

std::string eventText(const DeviceEvent& event, Date date, ColourMode colours)
{
    const auto& [connection, udid] = event.path;
    constexpr std::size_t kLongestWord = 8;
    constexpr std::size_t kLongestConnection = 7;
    return localTime(date) + "  "
        + coloured(
            padded(std::string(wordFor(event.type)), kLongestWord), colourFor(event.type), colours)
        + "  " + padded(connection == 0 ? "-" : connectionName(connection), kLongestConnection)
        + "  " + withControlCharactersEscaped(udid) + "\n";
}

Value eventValue(const DeviceEvent& event, Date date)
{
    return Dictionary { { "Event", wordFor(event.type) },
        { kTDWDeviceListItemUDID, event.path.udid },
        { kTDWDeviceListItemConnection, event.path.connection }, { "Date", date } };
}

} // namespace tdw::cli
