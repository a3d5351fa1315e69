#include "Devices/DeviceLookup.h"

#include "Devices/DeviceSelection.h"
#include "Devices/MultiplexerProbe.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWServer.h"

#include <algorithm>
#include <optional>

namespace tdw::cli {

namespace {

/// What a device calls itself; none where it does not say.
std::optional<std::string> requestName(const Requests& requests, const ListedDevice& device)
{
    const auto connection
        = device.isReachedBy(Connection::Usb) ? Connection::Usb : Connection::Network;
    const auto payload = requests.send(
        kTidewellServerInfo, { device.udid, std::to_string(static_cast<int>(connection)) });
    const Dictionary* info = payload ? payload->asDictionary() : nullptr;
    const Value* name = info ? info->find(kTDWDeviceInfoDeviceName) : nullptr;
    if (!name || !name->asString())
        return std::nullopt;
    return *name->asString();
}

std::vector<NamedDevice> requestNames(
    const Requests& requests, const std::vector<ListedDevice>& devices)
{
    const auto multiplexer = multiplexerAddress();
    std::vector<NamedDevice> named;
    for (const ListedDevice& device : devices) {
        if (!holdsPairing(multiplexer, device.udid))
            continue;
        if (auto name = requestName(requests, device))
            named.push_back({ device, *std::move(name) });
    }
    return named;
}

Error noDevice(const std::string& text, const std::vector<ListedDevice>& devices)
{
    if (devices.empty())
        return commandLineError({ .status = ExitStatus::NoDevice,
            .reason = "No device can be reached, so \"" + text + "\" is not there.",
            .advice = "Connect it with a cable and unlock it." });
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "No device matches \"" + text + "\".",
        .advice = "\"tidewell list\" shows what can be reached. A device that this computer is not "
                  "paired with is known by its UDID only." });
}

} // namespace

Result<ListedDevice> findDevice(const Requests& requests, const std::string& text)
{
    TDW_TRY(validateDeviceText(text));
    const auto payload = TDW_TRY(requestDeviceList(requests));
    const auto devices = TDW_TRY(parseDeviceList(payload));
    if (const auto device = TDW_TRY(selectByUdid(text, devices)))
        return *device;
    if (!isWholeUdid(text)) {
        if (const auto device = TDW_TRY(selectByName(text, requestNames(requests, devices))))
            return *device;
    }
    return noDevice(text, devices);
}

Result<ListedDevice> findOnlyDevice(const Requests& requests)
{
    const auto payload = TDW_TRY(requestDeviceList(requests));
    const auto devices = TDW_TRY(parseDeviceList(payload));
    if (devices.size() == 1)
        return devices.front();
    if (devices.empty())
        return commandLineError({ .status = ExitStatus::NoDevice,
            .reason = "No device can be reached.",
            .advice = "Connect it with a cable and unlock it." });
    std::string candidates;
    for (const ListedDevice& device : devices)
        candidates += device.udid + "\n";
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "More than one device can be reached:\n" + candidates,
        .advice = "Say which of them is meant." });
}

Result<ListedDevice> findDeviceOnCable(const Requests& requests, const std::string& text)
{
    auto device = TDW_TRY(findDevice(requests, text));
    if (!device.isReachedBy(Connection::Usb))
        return notReachableBy(Connection::Usb, device);
    return device;
}

Error notReachableBy(Connection connection, const ListedDevice& device)
{
    const bool isUsb = connection == Connection::Usb;
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "\"" + device.udid + "\" cannot be reached over "
            + (isUsb ? "USB" : "the network") + " (only: " + connectionNames(device) + ").",
        .advice = isUsb ? "Connect the device with a cable."
                        : "Leave --connection out to reach it either way." });
}

} // namespace tdw::cli
