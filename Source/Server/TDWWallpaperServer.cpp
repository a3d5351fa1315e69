#include "Server/TDWWallpaperServer.h"

#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWWallpaper.h"
#include "Platform/FileHandle.h"
#include "Server/DeviceHandles.h"
#include "Server/ServerEnding.h"
#include "Server/WallpaperClient.h"
#include "Support/TDWErrorHelpers.h"

#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace {

using WallpaperClient = tdw::Handle<wallpaper_client_private, &wallpaper_client_free>;

constexpr int kNameArgument = 3;
constexpr int kWidthArgument = 4;
constexpr int kNoImageCode = -1;

struct Wallpaper {
    std::uint32_t name = WALLPAPER_NAME_LOCK_SCREEN;
    double widthPixels = 0;
};

[[noreturn]] void endOverInvalidName()
{
    constexpr std::string_view kMessage = "Invalid wallpaper name index specified in arguments!\n";
    (void)tdw::writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(kMessage)));
    _exit(EXIT_FAILURE);
}

int answerWithPreview(wallpaper_client_t client, const Wallpaper& wallpaper)
{
    std::uint64_t orientation = 0;
    if (const int code = wallpaper_client_get_interface_orientation(client, &orientation))
        return tdw::failCall("wallpaper_client_get_interface_orientation", code);
    tdw::LibraryText image;
    std::uint64_t length = 0;
    const int code = wallpaper_client_get_wallpaper_preview_image_png_data(
        client, wallpaper.name, wallpaper.widthPixels, out(image), &length);
    if (code != WALLPAPER_E_SUCCESS)
        return tdw::failCall("wallpaper_client_get_wallpaper_preview_image_png_data", code);
    if (!image || length == 0)
        return TDWSerializeErrorResponse(
            TDWErrorCreateWithMessage("Service returned no wallpaper data.", kNoImageCode));
    const auto* bytes = reinterpret_cast<const std::byte*>(image.get());
    return TDWSerializeResponse(
        tdw::Dictionary { { kTDWWallpaperInterfaceOrientation, orientation },
            { kTDWWallpaperImage, tdw::Data(bytes, bytes + length) } });
}

} // namespace

int TDWWallpaperServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    if (argumentCount <= 1)
        return tdw::endServer(TDWSerializeErrorResponse(
            TDWErrorCreateWithMessage("Device UDID must be provided.", 1)));
    const auto options = TDWParseDeviceOptionsFromArguments(argumentCount, arguments);
    // One after the other: a wrong name ends the run here.
    Wallpaper wallpaper;
    wallpaper.name = TDWParseWallpaperNameFromArguments(argumentCount, arguments);
    wallpaper.widthPixels = TDWParseWallpaperWidthPixelsFromArguments(argumentCount, arguments);

    tdw::DeviceHandle device;
    WallpaperClient client;
    int status = idevice_new_with_options(out(device), arguments[1], options);
    if (status != IDEVICE_E_SUCCESS)
        return tdw::endServer(tdw::failCall("idevice_new_with_options", status));
    status = wallpaper_client_start_service(device.get(), out(client), TDWServerName());
    if (status != WALLPAPER_E_SUCCESS)
        tdw::failCall("wallpaper_client_start_service", status);
    else
        status = answerWithPreview(client.get(), wallpaper);
    return tdw::endServer(status, client, device);
}

std::uint32_t TDWParseWallpaperNameFromArguments(int argumentCount, char** arguments)
{
    if (argumentCount <= kNameArgument)
        return WALLPAPER_NAME_LOCK_SCREEN;
    const long long name = std::strtoll(arguments[kNameArgument], nullptr, 10);
    if (name != WALLPAPER_NAME_LOCK_SCREEN && name != WALLPAPER_NAME_HOME_SCREEN)
        endOverInvalidName();
    return static_cast<std::uint32_t>(name);
}

double TDWParseWallpaperWidthPixelsFromArguments(int argumentCount, char** arguments)
{
    if (argumentCount <= kWidthArgument)
        return 0.0;
    // Not strtod, which reads hexadecimal numbers and minds the locale's decimal comma.
    std::string_view text = arguments[kWidthArgument];
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    if (text.starts_with('+'))
        text.remove_prefix(1);
    double width = 0.0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), width);
    return result.ec == std::errc() && std::isfinite(width) ? width : 0.0;
}
