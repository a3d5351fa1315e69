#pragma once

#include "Platform/Value.h"

#include <string_view>

namespace tdw::simulator {

enum class WallpaperPlace { HomeScreen, LockScreen };

/// Draws a wallpaper as a PNG image: hills under an evening sky, in colours of the device's own.
Data drawWallpaper(std::string_view udid, WallpaperPlace place);

} // namespace tdw::simulator
