#pragma once

#include "Platform/Export.h"

#include <cstdint>

extern "C" {

/// The wallpaper server: writes the device's orientation and a preview of one of its wallpapers.
///
/// Arguments: UDID, connection type, wallpaper (0 lock screen, 1 home screen), width in pixels (0:
/// as the device likes).
/// @return the exit status: 0, the code of the call that failed, or 1 without a UDID or an image
TDW_EXPORT int TDWWallpaperServerMain(int argumentCount, char** arguments);

/// The wallpaper in the fourth argument; without one the lock screen. A number that is no wallpaper
/// ends the process with a message on standard error and status 1, before any device is opened.
TDW_EXPORT std::uint32_t TDWParseWallpaperNameFromArguments(int argumentCount, char** arguments);

/// The width in the fifth argument: the decimal number that it begins with. 0 without one, and for
/// anything that is no finite number.
TDW_EXPORT double TDWParseWallpaperWidthPixelsFromArguments(int argumentCount, char** arguments);
}
