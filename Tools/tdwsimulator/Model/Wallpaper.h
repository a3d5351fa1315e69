#pragma once

#include "Model/Scenario.h"
#include "Platform/Values/Data.h"

#include <optional>
#include <string>
#include <string_view>

namespace tdw::simulator {

enum class WallpaperPlace { HomeScreen, LockScreen };

/// What a wallpaper is drawn for.
struct WallpaperSubject {
    /// Chooses the colours.
    std::string udid;
    /// Decides about its shape.
    std::string deviceClass;
    /// Its size where no width is asked for, and its shape.
    std::optional<PictureSize> size {};
};

/// Draws a wallpaper as a PNG image: a sky of the device's own colours.
/// @param widthPixels rounded to whole pixels, and to at most 4096; anything that is no width lets
///        the device choose
Data drawWallpaper(const WallpaperSubject& subject, WallpaperPlace place, double widthPixels);

} // namespace tdw::simulator
