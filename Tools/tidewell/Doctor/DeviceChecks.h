#pragma once

#include "Doctor/Finding.h"
#include "Platform/System/Trace.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <string>
#include <vector>

namespace tdw::cli {

/// What asking one device has given. No device was made to ask its user for it.
struct DeviceProbe {
    std::string udid;
    /// Whether this computer holds a pairing record that can be used.
    Result<bool> hasRecord = false;
    /// The answer to a `DeviceInfoQuery` that diagnoses and does not pair.
    Result<Value> info = Value(false);
    /// Whether the multiplexer does not list it any more.
    bool isGone = false;
    /// The steps of all that was asked; those of other devices are passed over.
    std::vector<TraceEvent> steps;
};

/// Says of a device, from the cable up, what is right and what is wrong. Asks nothing.
Findings deviceFindings(const DeviceProbe& probe);

} // namespace tdw::cli
