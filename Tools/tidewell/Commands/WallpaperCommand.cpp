#include "Commands/Commands.h"
#include "Devices/DeviceFailure.h"
#include "Devices/DeviceLookup.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWWallpaper.h"
#include "Terminal/AtomicFileWriter.h"
#include "Terminal/Png.h"
#include "Terminal/TerminalGraphics.h"
#include "Terminal/TerminalPicture.h"

#include <string>

namespace tdw::cli {

namespace {

/// As a file: standard output.
constexpr std::string_view kStandardOutput = "-";

/// Where the picture goes.
struct Destination {
    /// Null: the terminal.
    const std::string* file = nullptr;
    bool isStandardOutput = false;
    Overwrite overwrite = Overwrite::No;
    TerminalGraphics terminal = TerminalGraphics::None;
};

Error wrongUse(const std::string& reason)
{
    return commandLineError(
        { .status = ExitStatus::Usage, .reason = reason + "; try 'tidewell wallpaper --help'" });
}

/// Decides before any device is asked.
Result<Destination> destinationOf(const CommandContext& context)
{
    const Arguments& arguments = context.arguments;
    Destination destination;
    destination.file = arguments.valueOf("--output");
    destination.isStandardOutput = destination.file && *destination.file == kStandardOutput;
    if (destination.isStandardOutput) {
        if (arguments.has("--json"))
            return wrongUse("Standard output holds either the picture or --json's answer");
        return destination;
    }
    if (destination.file) {
        if (arguments.has("--force"))
            destination.overwrite = Overwrite::Yes;
        TDW_TRY(checkDestination(*destination.file, destination.overwrite));
        return destination;
    }
    if (arguments.has("--force") || arguments.has("--json"))
        return wrongUse("Give a file with -o FILE");
    destination.terminal = findTerminalGraphics();
    if (destination.terminal == TerminalGraphics::None)
        return wrongUse("No terminal here can show pictures: give a file with -o FILE");
    return destination;
}

/// The wallpaper's number in the request.
Result<std::uint64_t> wallpaperName(const Arguments& arguments)
{
    if (arguments.has("--home") && arguments.has("--lock"))
        return wrongUse("Give one of --home and --lock");
    return std::uint64_t { arguments.has("--home") ? 1U : 0U };
}

struct Wallpaper {
    Value orientation;
    Data image;
    PictureSize size;
};

Result<Wallpaper> wallpaperIn(const Value& payload)
{
    const Value* orientation = payload.find(kTDWWallpaperInterfaceOrientation);
    const Data* image = payload.dataAt(kTDWWallpaperImage);
    if (!orientation || !orientation->asInteger() || !image)
        return commandLineError({ .status = ExitStatus::Failure,
            .reason = "The answer is not in the expected form: " + payload.debugDescription() });
    const auto size = TDW_TRY(checkPng(*image));
    return Wallpaper { *orientation, *image, size };
}

Result<void> show(
    const CommandContext& context, const Wallpaper& wallpaper, TerminalGraphics terminal)
{
    const TerminalFrame frame = terminalFrame();
    if (terminal == TerminalGraphics::Kitty)
        return context.console.print(kittyPicture(wallpaper.image, wallpaper.size, frame));
    return context.console.print(
        sixelPicture(shrunkInto(frame.pixels, TDW_TRY(decodePng(wallpaper.image)))));
}

Result<void> report(
    const CommandContext& context, const Wallpaper& wallpaper, const std::string& file)
{
    const auto [width, height] = wallpaper.size;
    const Value answer = Dictionary { { kTDWWallpaperInterfaceOrientation, wallpaper.orientation },
        { "Width", width }, { "Height", height },
        { "Bytes", static_cast<std::int64_t>(wallpaper.image.size()) }, { "File", file } };
    return reportDone(context, answer,
        "The picture, " + std::to_string(width) + " x " + std::to_string(height)
            + " pixels, is in \"" + file + "\" now.");
}

} // namespace

Result<void> wallpaperCommand(const CommandContext& context)
{
    const auto name = TDW_TRY(wallpaperName(context.arguments));
    const auto destination = TDW_TRY(destinationOf(context));
    const auto device = TDW_TRY(findDevice(context.requests, context.arguments.words.front()));
    const std::string attempt = "Cannot get the wallpaper of \"" + device.udid + "\"";
    const auto connection = TDW_TRY(connectionTypeFor(context, device));
    if (const auto paired = requirePairing(context.requests, device.udid); !paired)
        return whileTrying(attempt, paired.error());
    const Value payload = TDW_TRY(askDevice(context.requests, device.udid,
        WallpaperQuery { .udid = device.udid,
            .connectionType = connection,
            .wallpaperName = name,
            .widthPixels = static_cast<double>(context.arguments.pixelsOf("--width").value_or(0)) },
        attempt));
    const auto wallpaper = TDW_TRY(wallpaperIn(payload));
    if (destination.isStandardOutput)
        return context.console.print(
            { reinterpret_cast<const char*>(wallpaper.image.data()), wallpaper.image.size() });
    if (!destination.file)
        return show(context, wallpaper, destination.terminal);
    TDW_TRY(writeFileAtomically(*destination.file, wallpaper.image, destination.overwrite));
    return report(context, wallpaper, *destination.file);
}

} // namespace tdw::cli
