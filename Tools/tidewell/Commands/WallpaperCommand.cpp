#include "Commands/Commands.h"
#include "Commands/ConnectionChoice.h"
#include "Commands/DeviceRequest.h"
#include "Devices/DeviceLookup.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWServer.h"
#include "Interfaces/TDWWallpaper.h"
#include "Output/WholeFile.h"
#include "Pictures/Png.h"
#include "Pictures/TerminalGraphics.h"
#include "Pictures/TerminalPicture.h"

#include <string>

namespace tdw::cli {

namespace {

/// Where the picture goes.
struct Destination {
    const std::string* file = nullptr;
    Overwrite overwrite = Overwrite::No;
    TerminalGraphics terminal = TerminalGraphics::None;
};

Error wrongUse(const std::string& reason)
{
    return commandLineError(
        { .status = ExitStatus::Usage, .reason = reason + "; try 'tidewell wallpaper --help'" });
}

/// Settles that before any device is asked.
Result<Destination> destinationOf(const Session& session)
{
    const Arguments& arguments = session.arguments;
    Destination destination;
    destination.file = arguments.valueOf("--output");
    if (destination.file) {
        if (arguments.has("--force"))
            destination.overwrite = Overwrite::Yes;
        TDW_TRY(checkDestination(*destination.file, destination.overwrite));
        return destination;
    }
    if (arguments.has("--force") || arguments.has("--json"))
        return wrongUse("Say with -o FILE where the picture is to go");
    destination.terminal = findTerminalGraphics();
    if (destination.terminal == TerminalGraphics::None)
        return wrongUse("There is no terminal here that can show pictures: say with -o FILE where "
                        "the picture is to go");
    return destination;
}

/// The name of the wallpaper in the server's arguments.
Result<std::string> nameArgument(const Arguments& arguments)
{
    if (arguments.has("--home") && arguments.has("--lock"))
        return wrongUse("Give one of --home and --lock");
    return std::string(arguments.has("--home") ? "1" : "0");
}

struct Wallpaper {
    Value orientation;
    Data image;
    PictureSize size;
};

Result<Wallpaper> wallpaperIn(const Value& payload)
{
    const Dictionary* fields = payload.asDictionary();
    const Value* orientation = fields ? fields->find(kTDWWallpaperInterfaceOrientation) : nullptr;
    const Value* image = fields ? fields->find(kTDWWallpaperImage) : nullptr;
    if (!orientation || !orientation->asInteger() || !image || !image->asData())
        return commandLineError({ .status = ExitStatus::Failure,
            .reason = "The answer is not in the expected form: " + payload.debugDescription() });
    const auto size = TDW_TRY(checkPng(*image->asData()));
    return Wallpaper { *orientation, *image->asData(), size };
}

Result<void> show(const Session& session, const Wallpaper& wallpaper, TerminalGraphics terminal)
{
    const TerminalFrame frame = terminalFrame();
    if (terminal == TerminalGraphics::Kitty)
        return session.console.print(kittyPicture(wallpaper.image, wallpaper.size, frame));
    return session.console.print(
        sixelPicture(shrunkInto(frame.pixels, TDW_TRY(decodePng(wallpaper.image)))));
}

Result<void> report(const Session& session, const Wallpaper& wallpaper, const std::string& file)
{
    const auto [width, height] = wallpaper.size;
    const Value answer = Dictionary { { kTDWWallpaperInterfaceOrientation, wallpaper.orientation },
        { "Width", width }, { "Height", height },
        { "Bytes", static_cast<std::int64_t>(wallpaper.image.size()) }, { "File", file } };
    return reportDone(session, answer,
        "The picture, " + std::to_string(width) + " x " + std::to_string(height)
            + " pixels, is in \"" + file + "\" now.");
}

} // namespace

Result<void> wallpaperCommand(const Session& session)
{
    const auto name = TDW_TRY(nameArgument(session.arguments));
    const auto destination = TDW_TRY(destinationOf(session));
    const auto device = TDW_TRY(findDevice(session.requests, session.arguments.words.front()));
    const auto connection = TDW_TRY(connectionArgument(session, device));
    const Value payload = TDW_TRY(requestFor(session,
        { .server = kTidewellServerWallpaper,
            .arguments = { device.udid, connection, name,
                std::to_string(session.arguments.pixelsOf("--width").value_or(0)) },
            .attempt = "Cannot get the wallpaper of \"" + device.udid + "\"" }));
    const auto wallpaper = TDW_TRY(wallpaperIn(payload));
    if (!destination.file)
        return show(session, wallpaper, destination.terminal);
    TDW_TRY(writeWholeFile(*destination.file, wallpaper.image, destination.overwrite));
    return report(session, wallpaper, *destination.file);
}

} // namespace tdw::cli
