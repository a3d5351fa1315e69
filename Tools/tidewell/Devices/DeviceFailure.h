#pragma once

#include "Devices/DeviceList.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Requests/DeviceRequests.h"

#include <string>
#include <string_view>

namespace tdw::cli {

/// Finds out why a request failed, because the device library has one code for many causes: a
/// multiplexer that ended, a device that was disconnected meanwhile (`ExitStatus::Disconnected`), a
/// device that is locked or does not trust this computer. Asks no device that could ask its user.
/// @return an error for the cause that was found, with `error` below it; or `error` itself
Error explainedFailure(DeviceRequests& requests, const std::string& udid, const Error& error);

/// The error of a service that a device does not start, or that does not do its work, although the
/// device trusts this computer.
/// @param cause what the device library says, which is often nothing
Error serviceFailure(const Error& cause);

/// Checks that this computer holds a pairing with the device, so that asking the device does not
/// make it ask its user. Errors: `ExitStatus::NotTrusted`; those of the multiplexer
Result<void> requirePairing(DeviceRequests& requests, const std::string& udid);

/// Sends a request and waits; an error says what was tried, and why it failed.
/// @param attempt as `whileTrying` wants it
Result<Value> askDevice(
    DeviceRequests& requests, const std::string& udid, DeviceQuery query, std::string_view attempt);

} // namespace tdw::cli
