#pragma once

#include "Platform/Export.h"

#include <string_view>

extern "C" {

/// In the payload of a wallpaper: how the device is held, an unsigned integer as it counts.
TDW_EXPORT extern const std::string_view kTDWWallpaperInterfaceOrientation;

/// In the payload of a wallpaper: a preview, the bytes of a PNG.
TDW_EXPORT extern const std::string_view kTDWWallpaperImage;
}
