#pragma once

#include "Devices/DeviceList.h"
#include "Devices/Requests.h"
#include "Platform/Result.h"

#include <string>

namespace tdw::cli {

/// Finds the device that a user means among those that are listed: by its UDID, by the beginning of
/// one, or else by its name.
///
/// Names are asked for only when no UDID fits, and only of devices that this computer is paired
/// with: any other device would take the question for a wish to pair, and ask its user.
///
/// Errors: those of the device list; `ExitStatus::Usage`; `ExitStatus::NoDevice`
Result<ListedDevice> findDevice(const Requests& requests, const std::string& text);

/// The one device that is listed.
///
/// Errors: those of the device list; `ExitStatus::NoDevice` where there is none, or more than one
Result<ListedDevice> findOnlyDevice(const Requests& requests);

/// The same as `findDevice` for what can be done with a cable only.
Result<ListedDevice> findDeviceOnCable(const Requests& requests, const std::string& text);

/// The error of a device that is there, but not by the connection that is needed.
Error notReachableBy(Connection connection, const ListedDevice& device);

} // namespace tdw::cli
