#pragma once

#include "CommandLine/Arguments.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Requests/DeviceRequests.h"
#include "Requests/TraceListener.h"
#include "Terminal/Console.h"

#include <string>

namespace tdw::cli {

/// What a command works with.
struct CommandContext {
    const Arguments& arguments;
    DeviceRequests& requests;
    const Console& console;
    /// What collects the steps; null where they are not wanted or cannot be had.
    TraceListener* trace = nullptr;
};

/// The commands, by the names that they have on the command line. Each writes its data to standard
/// output, and returns an error for everything that the user should be told otherwise.
Result<void> listCommand(const CommandContext& context);
Result<void> infoCommand(const CommandContext& context);
Result<void> batteryCommand(const CommandContext& context);
Result<void> companionsCommand(const CommandContext& context);
Result<void> wallpaperCommand(const CommandContext& context);
Result<void> pairCommand(const CommandContext& context);
Result<void> unpairCommand(const CommandContext& context);
Result<void> wifiCommand(const CommandContext& context);
Result<void> buddyCommand(const CommandContext& context);
Result<void> eventsCommand(const CommandContext& context);
Result<void> watchCommand(const CommandContext& context);
Result<void> serviceCommand(const CommandContext& context);
Result<void> doctorCommand(const CommandContext& context);
Result<void> reportCommand(const CommandContext& context);
Result<void> helpCommand(const CommandContext& context);
Result<void> completionCommand(const CommandContext& context);

// What several of them do.

struct ListedDevice;

/// The connection type of a request, as --connection chooses it.
/// Errors: `ExitStatus::NoDevice`, where the device cannot be reached that way
Result<std::uint64_t> connectionTypeFor(const CommandContext& context, const ListedDevice& device);

/// Ends a command that changed something: with a sentence, or with the answer as JSON.
Result<void> reportDone(
    const CommandContext& context, const Value& answer, const std::string& sentence);

/// Writes a warning on standard error.
void warn(const CommandContext& context, const Error& warning);

} // namespace tdw::cli
