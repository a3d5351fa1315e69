#include "Device/SpringboardService.h"

#include <charconv>
#include <utility>

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
    if (name && *name == "homescreen")
        return WallpaperPlace::HomeScreen;
    if (name && *name == "lockscreen")
        return WallpaperPlace::LockScreen;
    return std::nullopt;
}

double widthIn(const Dictionary& request)
{
    const Value* width = request.find("widthPixels");
    if (width && width->asReal())
        return *width->asReal();
    const auto whole = width ? width->asInt64() : std::nullopt;
    return static_cast<double>(whole.value_or(0));
}

ServiceReply replying(Dictionary message)
{
    return ServiceReply { .messages = { std::move(message) } };
}

} // namespace

ServiceReply SpringboardService::handle(const Dictionary& request)
{
    const std::string name = requestName(request);
    if (name == "getInterfaceOrientation")
        return replying({ { "interfaceOrientation", m_device.description().orientation } });

    const bool hasPreviews = majorVersion(m_device) >= kFirstVersionWithPreviews;
    const bool isPreview = name == "getWallpaperPreviewImage";
    const bool isLegacy = name == "getHomeScreenWallpaperPNGData";
    const bool isInfo = name == "getWallpaperInfo";
    if ((isPreview && !hasPreviews) || (isLegacy && hasPreviews))
        return ServiceReply { .next = ServiceReply::Next::Close };
    const auto place
        = isLegacy ? WallpaperPlace::HomeScreen : placeNamed(request.stringAt("wallpaperName"));
    if ((!isPreview && !isLegacy && !isInfo) || !place)
        return replying(refusal(request, "UnknownCommand"));
    // What devices say here is not known; software is to pass it on whatever it is.
    if (isInfo)
        return replying({ { "wallpaperName", *request.stringAt("wallpaperName") } });
    return replying({ { "pngData", m_device.wallpaper(*place, widthIn(request)) } });
}

Dictionary SpringboardService::refusal(const Dictionary&, std::string_view error) const
{
    return Dictionary { { "Error", error } };
}

} // namespace tdw::simulator
