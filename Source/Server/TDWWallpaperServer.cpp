#include "Server/TDWWallpaperServer.h"

#include "Interfaces/TDWWallpaper.h"
#include "Platform/Handle.h"
#include "Platform/System/Trace.h"
#include "Server/ServerMain.h"
#include "Server/TDWServerImplementation.h"
#include "Server/WallpaperClient.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

using tdw::Result;
using tdw::ServerReply;

namespace {

using WallpaperClient = tdw::Handle<wallpaper_client_private, &wallpaper_client_free>;

constexpr int kNameArgument = 3;
constexpr int kWidthArgument = 4;
constexpr int kNoImageCode = -1;

[[noreturn]] void endOverInvalidName()
{
    tdw::reportLine("Invalid wallpaper name index specified in arguments!");
    _exit(EXIT_FAILURE);
}

Result<wallpaper_client_t> startClient(tdw::DeviceSession& session)
{
    WallpaperClient client;
    tdw::TraceStep step("wallpaper service of", session.udid());
    if (const int code = step.ended(
            wallpaper_client_start_service(session.device(), out(client), TDWServerName())))
        return TDWErrorCreate("wallpaper_client_start_service", code);
    return session.keep(std::move(client));
}

Result<ServerReply> preview(wallpaper_client_t client, std::uint32_t name, double widthPixels)
{
    std::uint64_t orientation = 0;
    if (const int code = wallpaper_client_get_interface_orientation(client, &orientation))
        return TDWErrorCreate("wallpaper_client_get_interface_orientation", code);
    tdw::LibraryText image;
    std::uint64_t length = 0;
    const int code = wallpaper_client_get_wallpaper_preview_image_png_data(
        client, name, widthPixels, out(image), &length);
    if (code != WALLPAPER_E_SUCCESS)
        return TDWErrorCreate("wallpaper_client_get_wallpaper_preview_image_png_data", code);
    if (!image || length == 0)
        return TDWErrorCreateWithMessage("Service returned no wallpaper data.", kNoImageCode);
    const auto* bytes = reinterpret_cast<const std::byte*>(image.get());
    return ServerReply { tdw::Dictionary { { kTDWWallpaperInterfaceOrientation, orientation },
        { kTDWWallpaperImage, tdw::Data(bytes, bytes + length) } } };
}

} // namespace

int TDWWallpaperServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    return tdw::answerRequest([&](tdw::DeviceSession& session) -> Result<ServerReply> {
        const char* udid = TDW_TRY(tdw::requiredUdid(argumentCount, arguments));
        const auto options = TDWParseDeviceOptionsFromArguments(argumentCount, arguments);
        // A wrong name ends the process here.
        const std::uint32_t name = TDWParseWallpaperNameFromArguments(argumentCount, arguments);
        const double width = TDWParseWallpaperWidthPixelsFromArguments(argumentCount, arguments);
        TDW_TRY(session.open(udid, options));
        const auto client = TDW_TRY(startClient(session));
        const tdw::TraceStep step("wallpaper of", session.udid());
        return preview(client, name, width);
    });
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
