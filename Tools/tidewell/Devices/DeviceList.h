#pragma once

#include "Devices/Requests.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tdw::cli {

/// How a device is reached, by the numbers of the device list.
enum class Connection : std::uint8_t { Usb = 1, Network = 2 };

/// One device of the list, with each way in which it can be reached, in the order of the list.
struct ListedDevice {
    std::string udid;
    std::vector<std::int64_t> connections;

    bool isReachedBy(Connection connection) const;
    bool operator==(const ListedDevice&) const = default;
};

/// Asks for the device list. Errors: where the multiplexer is to blame,
/// `ExitStatus::MultiplexerUnavailable` with what is wrong with it.
Result<Value> requestDeviceList(const Requests& requests);

/// Reads the payload of the device list; a device that is there twice becomes one.
Result<std::vector<ListedDevice>> parseDeviceList(const Value& payload);

/// A connection in words; a number that has none is shown as it is.
std::string connectionName(std::int64_t connection);

/// All connections of a device in words.
std::string connectionNames(const ListedDevice& device);

} // namespace tdw::cli
