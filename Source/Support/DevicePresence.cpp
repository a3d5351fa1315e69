#include "Support/DevicePresence.h"

#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWResponse.h"

#include <algorithm>

namespace tdw {

std::optional<std::set<DevicePath>> devicesInList(const Value& envelope)
{
    std::optional<Error> error;
    const auto payload = TDWResponseUnwrap(envelope, error);
    const Dictionary* dictionary = payload ? payload->asDictionary() : nullptr;
    const Value* list = dictionary ? dictionary->find(kTDWDevicesKey) : nullptr;
    if (!list || !list->asArray())
        return std::nullopt;
    std::set<DevicePath> devices;
    for (const Value& item : *list->asArray()) {
        const Dictionary* device = item.asDictionary();
        const Value* udid = device ? device->find(kTDWDeviceListItemUDID) : nullptr;
        const Value* connection = device ? device->find(kTDWDeviceListItemConnection) : nullptr;
        if (udid && udid->asString() && connection && connection->asInt64())
            devices.insert({ static_cast<int>(*connection->asInt64()), *udid->asString() });
    }
    return devices;
}

DevicePresence::Events DevicePresence::received(const DeviceEvent& event)
{
    bool isNews = true;
    if (event.type == DeviceEvent::Type::Attached)
        isNews = m_devices.insert_or_assign(event.path, State::Confirmed).second;
    else if (event.type == DeviceEvent::Type::Detached)
        isNews = m_devices.erase(event.path) > 0;
    return isNews ? Events { event } : Events();
}

DevicePresence::Events DevicePresence::present() const
{
    Events events;
    for (const auto& [path, state] : m_devices)
        events.push_back({ DeviceEvent::Type::Attached, path });
    return events;
}

void DevicePresence::sourceEnded()
{
    for (auto& [path, state] : m_devices)
        state = State::Unconfirmed;
}

bool DevicePresence::hasUnconfirmed() const
{
    return std::ranges::any_of(
        m_devices, [](const auto& device) { return device.second == State::Unconfirmed; });
}

DevicePresence::Events DevicePresence::listed(const std::set<DevicePath>& devices)
{
    Events events;
    std::erase_if(m_devices, [&](const auto& device) {
        const bool isGone = device.second == State::Unconfirmed && !devices.contains(device.first);
        if (isGone)
            events.push_back({ DeviceEvent::Type::Detached, device.first });
        return isGone;
    });
    return events;
}

} // namespace tdw
