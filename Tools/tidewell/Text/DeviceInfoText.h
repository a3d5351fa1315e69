#pragma once

#include "Devices/DeviceList.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Text/BatteryBar.h"

#include <string>
#include <vector>

namespace tdw::cli {

/// What is known about a device, as a table.
/// @param info the payload of the device info server
/// Errors: `ExitStatus::Failure`, where the payload is none
Result<std::string> deviceInfoText(
    const ListedDevice& device, const Value& info, Glyphs glyphs, ColourMode colours);

/// The warnings of the payload that the table does not speak of already.
std::vector<Error> deviceInfoWarnings(const Value& info);

} // namespace tdw::cli
