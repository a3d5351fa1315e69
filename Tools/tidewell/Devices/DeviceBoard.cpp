#include "Devices/DeviceBoard.h"

#include "Devices/Companions.h"
#include "Devices/PairingState.h"
#include "Interfaces/TDWDeviceInfo.h"

#include <algorithm>
#include <utility>

namespace tdw::cli {

namespace {

std::string text(const Value& payload, std::string_view key)
{
    const std::string* value = payload.stringAt(key);
    return value ? *value : std::string();
}

/// The first line of an error's reason.
std::string remarkFor(const Error& error)
{
    const std::string reason = error.failureReason();
    return "no answer: " + reason.substr(0, reason.find('\n'));
}

void failed(BoardDevice& device, std::string remark, BoardDevice::Clock::time_point now)
{
    device.remark = std::move(remark);
    device.dueAt = now + device.retryPause;
    device.retryPause = std::min(2 * device.retryPause, DeviceBoard::kRefreshInterval);
}

} // namespace

void DeviceBoard::received(const DeviceEvent& event, Clock::time_point now)
{
    const auto& [connection, udid] = event.path;
    if (event.type == DeviceEvent::Type::Detached) {
        BoardDevice* device = find(udid);
        if (device && device->connections.erase(connection) > 0 && device->connections.empty())
            m_devices.erase(udid);
        return;
    }
    if (event.type == DeviceEvent::Type::Attached)
        m_devices[udid].connections.insert(connection);
    BoardDevice* device = find(udid);
    // A further connection adds nothing to a device that answers already.
    if (device && (event.type == DeviceEvent::Type::Paired || !device->remark.empty()))
        device->dueAt = now;
}

std::optional<std::string> DeviceBoard::nextToAsk(Clock::time_point now)
{
    for (auto& [udid, device] : m_devices) {
        if (!device.isAsked && device.dueAt <= now) {
            device.isAsked = true;
            return udid;
        }
    }
    return std::nullopt;
}

std::optional<DeviceBoard::Clock::time_point> DeviceBoard::nextDue() const
{
    std::optional<Clock::time_point> next;
    for (const auto& [udid, device] : m_devices) {
        if (!device.isAsked)
            next = next ? std::min(*next, device.dueAt) : device.dueAt;
    }
    return next;
}

void DeviceBoard::notPaired(const std::string& udid, Clock::time_point now)
{
    if (BoardDevice* device = find(udid))
        *device = { .connections = device->connections,
            .remark = shortPairingStateName(TDWDevicePairingStateNotPaired),
            .dueAt = now + kFirstRetryPause };
}

std::vector<std::string> DeviceBoard::answered(
    const std::string& udid, const Result<Value>& info, Clock::time_point now)
{
    BoardDevice* device = find(udid);
    if (!device)
        return {};
    device->isAsked = false;
    if (!info) {
        failed(*device, remarkFor(info.error()), now);
        return {};
    }
    const auto state = pairingStateOf(*info);
    device->name = text(*info, kTDWDeviceInfoDeviceName);
    device->answeredAt = now;
    if (!state || *state != TDWDevicePairingStatePaired) {
        device->battery.reset();
        failed(*device, state ? shortPairingStateName(*state) : remarkFor(state.error()), now);
        return {};
    }
    device->remark.clear();
    device->retryPause = kFirstRetryPause;
    device->dueAt = now + kRefreshInterval;
    const Value* battery = info->find(kTDWDeviceInfoBattery);
    device->battery = battery ? std::optional(*battery) : std::nullopt;

    const auto identifiers = companionIdentifiersIn(*info).value_or(std::vector<std::string>());
    std::vector<BoardCompanion> companions;
    for (const std::string& identifier : identifiers) {
        // What was known stays until there is something newer.
        const auto known
            = std::ranges::find(device->companions, identifier, &BoardCompanion::identifier);
        companions.push_back(
            known == device->companions.end() ? BoardCompanion { identifier } : std::move(*known));
    }
    device->companions = std::move(companions);
    return identifiers;
}

void DeviceBoard::companionAnswered(
    const std::string& udid, const std::string& identifier, const Result<Value>& entry)
{
    BoardDevice* device = find(udid);
    if (!device)
        return;
    const auto companion
        = std::ranges::find(device->companions, identifier, &BoardCompanion::identifier);
    if (companion == device->companions.end())
        return;
    companion->remark = entry ? "" : remarkFor(entry.error());
    if (!entry)
        return;
    if (const auto name = text(*entry, kTDWDeviceInfoDeviceName); !name.empty())
        companion->name = name;
    if (const Value* battery = entry->find(kTDWDeviceInfoBattery))
        companion->battery = *battery;
}

BoardDevice* DeviceBoard::find(const std::string& udid)
{
    const auto found = m_devices.find(udid);
    return found == m_devices.end() ? nullptr : &found->second;
}

} // namespace tdw::cli
