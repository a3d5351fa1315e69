#include "Devices/DeviceList.h"

#include "Devices/MultiplexerProbe.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWServer.h"

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

bool ListedDevice::isReachedBy(Connection connection) const
{
    return std::count(connections.begin(), connections.end(), static_cast<std::int64_t>(connection))
        > 0;
}

Result<Value> requestDeviceList(const Requests& requests)
{
    auto payload = requests.send(kTidewellServerList, {});
    if (payload)
        return payload;
    const Error& error = payload.error();
    const auto status = exitStatusOf(error);
    if (status == ExitStatus::ServerNotRun || status == ExitStatus::ServiceUnavailable)
        return whileTrying(kAttempt, error);

    // The library has one code for everything; the socket itself knows more.
    return whileTrying(kAttempt, multiplexerError(probeMultiplexer(multiplexerAddress()), error));
}

Result<std::vector<ListedDevice>> parseDeviceList(const Value& payload)
{
    const Dictionary* dictionary = payload.asDictionary();
    const Value* value = dictionary ? dictionary->find(kTDWDevicesKey) : nullptr;
    const Array* items = value ? value->asArray() : nullptr;
    if (!items)
        return malformed(payload);

    std::vector<ListedDevice> devices;
    for (const Value& item : *items) {
        const Dictionary* fields = item.asDictionary();
        const Value* udid = fields ? fields->find(kTDWDeviceListItemUDID) : nullptr;
        const Value* connection = fields ? fields->find(kTDWDeviceListItemConnection) : nullptr;
        if (!udid || !udid->asString() || !connection || !connection->asInt64())
            return malformed(item);
        const auto known = std::find_if(devices.begin(), devices.end(),
            [&](const ListedDevice& device) { return device.udid == *udid->asString(); });
        if (known == devices.end())
            devices.push_back({ *udid->asString(), { *connection->asInt64() } });
        else
            known->connections.push_back(*connection->asInt64());
    }
    return devices;
}

std::string connectionName(std::int64_t connection)
{
    if (connection == static_cast<std::int64_t>(Connection::Usb))
        return "USB";
    if (connection == static_cast<std::int64_t>(Connection::Network))
        return "network";
    return std::to_string(connection);
}

std::string connectionNames(const ListedDevice& device)
{
    std::string names;
    for (const std::int64_t connection : device.connections)
        names += (names.empty() ? "" : ", ") + connectionName(connection);
    return names;
}

} // namespace tdw::cli
