#include "Device/SpringboardService.h"

#include "Model/Lookup.h"

#include <charconv>

namespace tdw::simulator {

namespace {

/// The system's major version: 18 of "18.5".
int majorVersion(const SimulatedDevice& device)
{
    const std::string version = device.text("ProductVersion");
    int number = 0;
    std::from_chars(version.data(), version.data() + version.size(), number);
    return number;
}

constexpr int kFirstVersionWithPreviews = 16;

std::optional<WallpaperPlace> placeNamed(const std::string* name)
{
    if (name != nullptr && *name == "homescreen")
        return WallpaperPlace::HomeScreen;
    if (name != nullptr && *name == "lockscreen")
        return WallpaperPlace::LockScreen;
    return std::nullopt;
}

} // namespace

ServiceReply SpringboardService::handle(const Dictionary& request)
{
    const std::string name = requestName(request);
    const bool hasPreviews = majorVersion(m_device) >= kFirstVersionWithPreviews;
    const bool isPreview = name == "getWallpaperPreviewImage";
    const bool isLegacy = name == "getHomeScreenWallpaperPNGData";
    if ((isPreview && !hasPreviews) || (isLegacy && hasPreviews))
        return ServiceReply { .next = ServiceReply::Next::Close };
    const auto place
        = isLegacy ? WallpaperPlace::HomeScreen : placeNamed(stringIn(request, "wallpaperName"));
    if ((!isPreview && !isLegacy) || !place)
        return ServiceReply { .messages = { refusal(request, "UnknownCommand") } };
    return ServiceReply { .messages
        = { Dictionary { { "pngData", m_device.wallpaper(*place) } } } };
}

Dictionary SpringboardService::refusal(const Dictionary&, std::string_view error) const
{
    return Dictionary { { "Error", error } };
}

} // namespace tdw::simulator
