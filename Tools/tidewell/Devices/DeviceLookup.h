#pragma once

#include "Devices/DeviceList.h"
#include "Devices/DeviceSelection.h"
#include "Platform/Values/Result.h"
#include "Requests/DeviceRequests.h"

#include <chrono>
#include <string>
#include <vector>

namespace tdw::cli {

/// What asking devices for their names has given.
struct DeviceNames {
    std::vector<NamedDevice> named;
    /// The devices that did not answer in time.
    std::vector<ListedDevice> silent;
};

/// How long to wait for the name of one device: four times as long as the slowest answer took that
/// has come, within these bounds; the longer one where none has come yet.
struct NamePatience {
    std::chrono::milliseconds shortest { 2000 };
    std::chrono::milliseconds longest { 6000 };
    /// A name that is looked for. Once it has come, the shortest time is `shortestAfterMatch`:
    /// those that are still asked could only be other devices of that name.
    std::string wanted {};
    std::chrono::milliseconds shortestAfterMatch { 500 };
};

/// Asks devices for their names, many at once, and waits for each a bounded time. Only devices that
/// this computer is paired with are asked.
DeviceNames requestNames(DeviceRequests& requests, const std::vector<ListedDevice>& devices,
    NamePatience patience = NamePatience());

/// Finds the device that a user means among those that are listed: by its UDID, by the beginning of
/// one, or else by its name. Names are asked for only when no UDID fits.
///
/// Errors: those of the device list; `ExitStatus::Usage`; `ExitStatus::NoDevice`;
/// `ExitStatus::TimedOut`, where no name fits and some devices did not tell theirs
Result<ListedDevice> findDevice(DeviceRequests& requests, const std::string& text);

/// The one device that is listed.
///
/// Errors: those of the device list; `ExitStatus::NoDevice` where there is none, or more than one
Result<ListedDevice> findOnlyDevice(DeviceRequests& requests);

/// The same as `findDevice` for what can be done with a cable only.
Result<ListedDevice> findDeviceOnCable(DeviceRequests& requests, const std::string& text);

/// The error of a device that is there, but not by the connection that is needed.
Error notReachableBy(ConnectionType connection, const ListedDevice& device);

} // namespace tdw::cli
