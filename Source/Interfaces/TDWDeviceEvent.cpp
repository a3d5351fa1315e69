#include "Interfaces/TDWDeviceEvent.h"

#include <algorithm>

namespace tdw {

namespace {

constexpr std::size_t kLongestIdentifier = 64;

/// A number of one digit, from `first` to `last`.
std::optional<int> digit(std::string_view text, char first, char last)
{
    if (text.size() != 1 || text.front() < first || text.front() > last)
        return std::nullopt;
    return text.front() - '0';
}

bool isIdentifier(std::string_view text)
{
    return !text.empty() && text.size() <= kLongestIdentifier
        && std::ranges::all_of(text, [](char character) {
               return (character >= '0' && character <= '9')
                   || (character >= 'A' && character <= 'Z')
                   || (character >= 'a' && character <= 'z') || character == '-';
           });
}

} // namespace

std::optional<DeviceEvent> parseDeviceEvent(std::string_view text)
{
    const std::size_t first = text.find(',');
    const std::size_t second = first == text.npos ? first : text.find(',', first + 1);
    if (second == text.npos)
        return std::nullopt;
    const auto type = digit(text.substr(0, first), '1', '3');
    const auto connection = digit(text.substr(first + 1, second - first - 1), '0', '2');
    const std::string_view identifier = text.substr(second + 1);
    if (!type || !connection || !isIdentifier(identifier))
        return std::nullopt;
    return DeviceEvent { static_cast<DeviceEvent::Type>(*type),
        { *connection, std::string(identifier) } };
}

std::string deviceEventText(const DeviceEvent& event)
{
    return std::to_string(static_cast<int>(event.type)) + ","
        + std::to_string(event.path.connection) + "," + event.path.udid;
}

} // namespace tdw
