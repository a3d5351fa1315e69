#include "Interfaces/TDWWallpaper.h"

const std::string_view kTDWWallpaperInterfaceOrientation = "Orientation";
const std::string_view kTDWWallpaperImage = "Image";
