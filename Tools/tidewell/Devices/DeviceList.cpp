#include "Devices/DeviceList.h"

#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceList.h"

#include <algorithm>

namespace tdw::cli {

namespace {

constexpr std::string_view kAttempt = "Cannot list the devices";

Error malformed(const Value& what)
{
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = "The device list is not in the expected form: " + what.debugDescription() });
}

} // namespace

bool ListedDevice::isReachedBy(ConnectionType connection) const
{
    return std::ranges::count(connections, static_cast<std::int64_t>(connection)) > 0;
}

Result<Value> requestDeviceList(DeviceRequests& requests)
{
    auto payload = requests.ask(DeviceListQuery {});
    if (payload)
        return payload;
    const Error& error = payload.error();
    const auto status = exitStatusOf(error);
    if (status == ExitStatus::ServerNotRun || status == ExitStatus::ServiceUnavailable)
        return whileTrying(kAttempt, error);

    // The library has one code for everything; the socket itself tells more.
    const auto report = waitFor<MultiplexerReport>(
        requests.loop(), [&](auto handler) { requests.multiplexer().probe(std::move(handler)); });
    return whileTrying(kAttempt, multiplexerError(report, error));
}

Result<std::vector<ListedDevice>> parseDeviceList(const Value& payload)
{
    const Array* items = payload.arrayAt(kTDWDevicesKey);
    if (!items)
        return malformed(payload);
    std::vector<ListedDevice> devices;
    for (const Value& item : *items) {
        const std::string* udid = item.stringAt(kTDWDeviceListItemUDID);
        const auto connection = item.intAt(kTDWDeviceListItemConnection);
        if (!udid || !connection)
            return malformed(item);
        const auto known = std::ranges::find(devices, *udid, &ListedDevice::udid);
        if (known == devices.end())
            devices.push_back({ *udid, { *connection } });
        else
            known->connections.push_back(*connection);
    }
    return devices;
}

std::vector<std::string> missingFromList(const std::vector<std::string>& udidsOnBus,
    const std::function<bool(const std::string& udid)>& isListed)
{
    std::vector<std::string> missing;
    for (const std::string& udid : udidsOnBus) {
        if (!udid.empty() && !isListed(udid))
            missing.push_back(udid);
    }
    return missing;
}

Error notShownByMultiplexer(const std::string& udid)
{
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "A device is on the cable, but usbmuxd does not show it: \"" + udid + "\".",
        .advice = "Unlock it, disconnect it and connect it again. If that does not help, restart "
                  "usbmuxd: sudo systemctl restart usbmuxd" });
}

std::string connectionName(std::int64_t connection)
{
    if (connection == static_cast<std::int64_t>(ConnectionType::Usb))
        return "USB";
    if (connection == static_cast<std::int64_t>(ConnectionType::Network))
        return "network";
    return connection == 0 ? "-" : std::to_string(connection);
}

std::string connectionNames(const ListedDevice& device)
{
    std::string names;
    for (const std::int64_t connection : device.connections)
        names += (names.empty() ? "" : ", ") + connectionName(connection);
    return names;
}

} // namespace tdw::cli
