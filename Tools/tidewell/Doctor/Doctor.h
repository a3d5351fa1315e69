#pragma once

#include "Doctor/Finding.h"
#include "Platform/Values/Result.h"
#include "Requests/DeviceRequests.h"
#include "Requests/TraceListener.h"

#include <optional>
#include <string>

namespace tdw::cli {

/// What an examination has found, and what the devices said meanwhile.
struct Examined {
    Findings findings;
    /// The answers of the devices that answered.
    std::vector<Value> answers {};
    /// Those that are listed.
    std::vector<std::string> devices {};
    bool isServiceUsable = false;
};

/// Examines the computer from the bottom up, and then the devices, all at once. Every question has
/// a bound, and no device is made to ask its user. Devices are asked through the service, as
/// applications do, or without it where the service itself is in trouble.
///
/// @param requests those through the service
/// @param device a UDID, the beginning of one or a name; none: every device that is listed
/// @param trace what tells the times; may be null
/// Errors: `ExitStatus::Usage`
Result<Examined> examine(
    DeviceRequests& requests, const std::optional<std::string>& device, TraceListener* trace);

} // namespace tdw::cli
