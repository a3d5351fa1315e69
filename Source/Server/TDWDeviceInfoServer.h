#pragma once

#include "Platform/Export.h"

#include <set>
#include <string>
#include <vector>

extern "C" {

/// The keys that are read of a paired device, in this order.
TDW_EXPORT const std::vector<std::string>& TDWDeviceInfoKeys();

/// The keys that a connection without trust may read.
TDW_EXPORT const std::set<std::string>& _TDWUnpairedDeviceReadableKeys();

/// The keys that are read of an unpaired device: those of the first list that are in the second.
TDW_EXPORT const std::vector<std::string>& TDWUnpairedDeviceInfoKeys();

/// The keys that devices rightly lack; failing to read one is no warning.
TDW_EXPORT const std::set<std::string>& TDWIgnoreReadFailureInfoKeys();

/// The device info server: writes everything that can be told of one device. What cannot be read
/// becomes a warning; a device that does not trust this host tells less, and why.
///
/// Arguments: UDID, connection type, and anywhere among them
/// `kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag` and `kTDWDeviceInfoServerNeverPairFlag`.
/// @return the exit status: 0, or the library's code where the device or every lockdown connection
///         to it cannot be opened; 1 without a UDID
TDW_EXPORT int TDWDeviceInfoServerMain(int argumentCount, char** arguments);
}
