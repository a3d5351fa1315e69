#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Requests/DeviceRequests.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tdw::cli {

/// How a device is reached, by the numbers of the device list.
enum class ConnectionType : std::uint8_t { Usb = 1, Network = 2 };

/// One device of the list, with each way in which it can be reached, in the order of the list.
struct ListedDevice {
    std::string udid;
    std::vector<std::int64_t> connections;

    bool isReachedBy(ConnectionType connection) const;
    bool operator==(const ListedDevice&) const = default;
};

/// Asks for the device list. Errors: where the multiplexer is to blame,
/// `ExitStatus::MultiplexerUnavailable` with what is wrong with it.
Result<Value> requestDeviceList(DeviceRequests& requests);

/// Reads the payload of the device list; a device that is there twice becomes one.
Result<std::vector<ListedDevice>> parseDeviceList(const Value& payload);

/// The UDIDs on the USB bus that are not in a list of devices.
/// @param isListed whether the list has it over USB
std::vector<std::string> missingFromList(const std::vector<std::string>& udidsOnBus,
    const std::function<bool(const std::string& udid)>& isListed);

/// What to tell about a device that is on the cable and that usbmuxd does not show.
Error notShownByMultiplexer(const std::string& udid);

/// A connection in words; a number that has none is shown as it is.
std::string connectionName(std::int64_t connection);

/// All connections of a device in words.
std::string connectionNames(const ListedDevice& device);

} // namespace tdw::cli
