#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

#include <libimobiledevice/libimobiledevice.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

extern "C" {

/// The companion server: writes {"Devices": […]} with everything about each watch that is paired
/// with a phone. The first read that fails ends the request.
///
/// Arguments: the phone's UDID, connection type, identifiers of watches (none: all that the phone
/// knows, in its order).
/// @return the exit status: 0, or the code of the call that failed; 1 for replies that make no
/// sense
TDW_EXPORT int TDWCompanionServerMain(int argumentCount, char** arguments);

/// The companion battery server: the same with the batteries alone.
TDW_EXPORT int TDWCompanionBatteryServerMain(int argumentCount, char** arguments);

/// The shared body of the two.
TDW_EXPORT int _TDWCompanionServerRun(int argumentCount, char** arguments, bool batteryOnly);

/// Reads one value of a watch through a connection of its own.
/// @param isOptional whether a watch may do without it
/// @param outValue set where the watch has the value
/// @return 0, or a status after an error envelope was written
TDW_EXPORT int _TDWReadCompanionProperty(idevice_t device, const std::string& identifier,
    const std::string& key, bool isOptional, std::optional<tdw::Value>& outValue);

/// The keys of a device that are not asked of a watch.
TDW_EXPORT const std::set<std::string>& TDWKeysExcludedFromCompanion();

/// The keys that are asked of a watch, in this order.
TDW_EXPORT const std::vector<std::string>& TDWCompanionKeys();

/// The keys that a watch may do without.
TDW_EXPORT const std::set<std::string>& TDWOptionalCompanionKeys();

/// The keys of a watch's battery, in this order.
TDW_EXPORT const std::vector<std::string>& _TDWCompanionBatteryKeys();
}
