#include "Server/UnreportedPairings.h"

#include <utility>

namespace tdw {

bool UnreportedPairings::received(const DeviceEvent& event)
{
    Device& device = m_devices[event.path.udid];
    device.lastEvent = ++m_eventCount;
    switch (event.type) {
    case DeviceEvent::Type::Attached:
        device.connections.insert(event.path.connection);
        device.isToBeLookedAt = true;
        return true;
    case DeviceEvent::Type::Detached:
        device.connections.erase(event.path.connection);
        if (!device.connections.empty())
            return true;
        device.isToBeLookedAt = device.isTold = false;
        if (device.isPaired != false)
            m_devices.erase(event.path.udid);
        return true;
    case DeviceEvent::Type::Paired:
        device.isPaired = true;
        device.isToBeLookedAt = false;
        return !std::exchange(device.isTold, false);
    }
    return true;
}

std::vector<UnreportedPairings::Look> UnreportedPairings::looks() const
{
    std::vector<Look> looks;
    for (const auto& [udid, device] : m_devices) {
        if (device.isToBeLookedAt)
            looks.push_back({ udid, device.lastEvent });
    }
    return looks;
}

std::optional<DeviceEvent> UnreportedPairings::looked(const Look& look, bool hasRecord)
{
    const auto found = m_devices.find(look.udid);
    if (found == m_devices.end() || found->second.lastEvent != look.lastEvent)
        return std::nullopt;
    Device& device = found->second;
    device.isToBeLookedAt = !hasRecord;
    const auto wasPaired = std::exchange(device.isPaired, hasRecord);
    device.isTold = hasRecord && wasPaired == false;
    if (!device.isTold)
        return std::nullopt;
    return DeviceEvent { DeviceEvent::Type::Paired, { *device.connections.begin(), look.udid } };
}

} // namespace tdw
