#pragma once

#include "Platform/Export.h"

extern "C" {

/// The battery server: writes the device's battery domain, as it is.
///
/// Arguments: UDID. A connection type after it is not looked at: the device is always looked up
/// over USB and the network together.
/// @return the exit status: 0 once the domain was asked for, else the library's code
TDW_EXPORT int TDWBatteryServerMain(int argumentCount, char** arguments);
}
