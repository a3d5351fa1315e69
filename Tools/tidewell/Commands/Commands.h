#pragma once

#include "CommandLine/Arguments.h"
#include "Devices/Requests.h"
#include "Output/Console.h"
#include "Platform/Result.h"

namespace tdw::cli {

/// What a command works with.
struct Session {
    const Arguments& arguments;
    const Requests& requests;
    const Console& console;
};

/// The commands, by the names that they have on the command line. Each writes its data to standard
/// output, and returns an error for everything that the user should be told otherwise.
Result<void> listCommand(const Session& session);
Result<void> infoCommand(const Session& session);
Result<void> batteryCommand(const Session& session);
Result<void> companionsCommand(const Session& session);
Result<void> wallpaperCommand(const Session& session);
Result<void> pairCommand(const Session& session);
Result<void> unpairCommand(const Session& session);
Result<void> wifiCommand(const Session& session);
Result<void> buddyCommand(const Session& session);
Result<void> eventsCommand(const Session& session);
Result<void> watchCommand(const Session& session);
Result<void> serviceCommand(const Session& session);
Result<void> helpCommand(const Session& session);
Result<void> completionCommand(const Session& session);

} // namespace tdw::cli
