#include "DevicePresence.h"

#include <algorithm>
#include <charconv>

namespace tdw::service {

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

std::string lineFor(DeviceEvent::Type type, const DevicePath& path)
{
    return eventLine({ type, path });
}

} // namespace

std::optional<DeviceEvent> parseEventLine(std::string_view line)
{
    const std::size_t first = line.find(',');
    const std::size_t second = first == line.npos ? first : line.find(',', first + 1);
    if (second == line.npos)
        return std::nullopt;
    const auto type = digit(line.substr(0, first), '1', '3');
    const auto connection = digit(line.substr(first + 1, second - first - 1), '0', '2');
    const std::string_view identifier = line.substr(second + 1);
    if (!type || !connection || !isIdentifier(identifier))
        return std::nullopt;
    return DeviceEvent { static_cast<DeviceEvent::Type>(*type),
        { *connection, std::string(identifier) } };
}

std::string eventLine(const DeviceEvent& event)
{
    return std::to_string(static_cast<int>(event.type)) + "," + std::to_string(event.path.first)
        + "," + event.path.second;
}

DevicePresence::Lines DevicePresence::received(std::string_view line)
{
    const auto event = parseEventLine(line);
    if (!event)
        return {};
    switch (event->type) {
    case DeviceEvent::Type::Attached: {
        const auto [entry, isNew] = m_devices.insert_or_assign(event->path, State::Confirmed);
        return isNew ? Lines { eventLine(*event) } : Lines();
    }
    case DeviceEvent::Type::Detached:
        return m_devices.erase(event->path) > 0 ? Lines { eventLine(*event) } : Lines();
    case DeviceEvent::Type::Paired:
        return { eventLine(*event) };
    }
    return {};
}

DevicePresence::Lines DevicePresence::present() const
{
    Lines lines;
    for (const auto& [path, state] : m_devices)
        lines.push_back(lineFor(DeviceEvent::Type::Attached, path));
    return lines;
}

void DevicePresence::serverEnded()
{
    for (auto& [path, state] : m_devices)
        state = State::Unconfirmed;
}

bool DevicePresence::hasUnconfirmed() const
{
    return std::ranges::any_of(
        m_devices, [](const auto& device) { return device.second == State::Unconfirmed; });
}

DevicePresence::Lines DevicePresence::listed(const std::set<DevicePath>& devices)
{
    Lines lines;
    std::erase_if(m_devices, [&](const auto& device) {
        const bool isGone = device.second == State::Unconfirmed && !devices.contains(device.first);
        if (isGone)
            lines.push_back(lineFor(DeviceEvent::Type::Detached, device.first));
        return isGone;
    });
    return lines;
}

} // namespace tdw::service
