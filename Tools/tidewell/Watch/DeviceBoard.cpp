#include "Watch/DeviceBoard.h"

#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"
#include "Pairing/PairingState.h"

#include <algorithm>
#include <utility>

namespace tdw::cli {

namespace {

const Value* field(const Value& payload, std::string_view key)
{
    const Dictionary* fields = payload.asDictionary();
    return fields ? fields->find(key) : nullptr;
}

std::string text(const Value& payload, std::string_view key)
{
    const Value* value = field(payload, key);
    return value && value->asString() ? *value->asString() : std::string();
}

const Array& array(const Value& payload, std::string_view key)
{
    static const Array none;
    const Value* value = field(payload, key);
    return value && value->asArray() ? *value->asArray() : none;
}

/// The first line of an error's reason.
std::string remarkFor(const Error& error)
{
    const std::string reason = error.failureReason();
    return "no answer: " + reason.substr(0, reason.find('\n'));
}

} // namespace

void DeviceBoard::received(const service::DeviceEvent& event)
{
    using Type = service::DeviceEvent::Type;
    const auto& [connection, udid] = event.path;
    if (event.type == Type::Detached) {
        BoardDevice* device = find(udid);
        if (device && device->connections.erase(connection) > 0 && device->connections.empty())
            m_devices.erase(udid);
        return;
    }
    if (event.type == Type::Attached)
        m_devices[udid].connections.insert(connection);
    const BoardDevice* device = find(udid);
    // A further connection tells nothing new of a device that answers already.
    if (device && (event.type == Type::Paired || !device->isTrusted))
        want(udid);
}

std::optional<std::string> DeviceBoard::nextToAsk()
{
    while (!m_wanted.empty()) {
        std::string udid = std::move(m_wanted.front());
        m_wanted.pop_front();
        if (BoardDevice* device = find(udid)) {
            device->isAsked = true;
            return udid;
        }
    }
    return std::nullopt;
}

void DeviceBoard::refresh()
{
    for (const auto& [udid, device] : m_devices) {
        if (device.isTrusted)
            want(udid);
    }
}

void DeviceBoard::isStranger(const std::string& udid)
{
    if (BoardDevice* device = find(udid))
        *device = { .connections = device->connections, .remark = "not paired with this computer" };
}

std::vector<std::string> DeviceBoard::answered(const std::string& udid, const Result<Value>& info)
{
    BoardDevice* device = find(udid);
    if (!device)
        return {};
    device->isAsked = false;
    if (!info) {
        device->remark = remarkFor(info.error());
        return {};
    }
    const auto state = pairingStateOf(*info);
    device->name = text(*info, kTDWDeviceInfoDeviceName);
    device->isTrusted = state && *state == TDWDevicePairingStatePaired;
    device->remark = device->isTrusted ? ""
        : state                        ? pairingStateName(*state)
                                       : remarkFor(state.error());
    const Value* battery = field(*info, kTDWDeviceInfoBattery);
    device->battery = battery ? std::optional(*battery) : std::nullopt;

    std::vector<std::string> identifiers;
    std::vector<BoardWatch> watches;
    for (const Value& value : array(*info, kTDWDeviceInfoCompanionDeviceIdentifiers)) {
        const std::string* identifier = value.asString();
        if (!identifier)
            continue;
        identifiers.push_back(*identifier);
        // What was known stays until there is something newer.
        const auto known = std::ranges::find(device->watches, *identifier, &BoardWatch::identifier);
        watches.push_back(
            known == device->watches.end() ? BoardWatch { *identifier } : std::move(*known));
    }
    device->watches = std::move(watches);
    return identifiers;
}

void DeviceBoard::watchesAnswered(const std::string& udid, const Result<Value>& batteries)
{
    BoardDevice* device = find(udid);
    if (!device || !batteries)
        return;
    for (const Value& entry : array(*batteries, kTDWDevicesKey)) {
        const auto watch = std::ranges::find(
            device->watches, text(entry, kTDWDeviceListItemUDID), &BoardWatch::identifier);
        const Value* battery = field(entry, kTDWDeviceInfoBattery);
        if (watch != device->watches.end() && battery)
            watch->battery = *battery;
    }
}

BoardDevice* DeviceBoard::find(const std::string& udid)
{
    const auto found = m_devices.find(udid);
    return found == m_devices.end() ? nullptr : &found->second;
}

void DeviceBoard::want(const std::string& udid)
{
    if (std::ranges::find(m_wanted, udid) == m_wanted.end())
        m_wanted.push_back(udid);
}

} // namespace tdw::cli
