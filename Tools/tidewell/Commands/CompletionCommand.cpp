#include "CommandLine/Completion.h"
#include "Commands/Commands.h"
#include "Devices/DeviceLookup.h"
#include "Platform/Values/Utf8.h"

#include <algorithm>
#include <chrono>

namespace tdw::cli {

namespace {

/// Shells give up after a second.
constexpr std::chrono::milliseconds kNamePatience { 600 };

/// The devices for a shell to offer: a line for each, the UDID and, after a tab, the name where the
/// device tells it in time.
Result<void> printDevices(const CommandContext& context)
{
    const auto payload = TDW_TRY(requestDeviceList(context.requests));
    const auto devices = TDW_TRY(parseDeviceList(payload));
    const auto names = requestNames(
        context.requests, devices, { .shortest = kNamePatience, .longest = kNamePatience });
    std::string lines;
    for (const ListedDevice& device : devices) {
        lines += withControlCharactersEscaped(device.udid);
        const auto named = std::ranges::find(names.named, device, &NamedDevice::device);
        if (named != names.named.end())
            lines += "\t" + withControlCharactersEscaped(named->name);
        lines += "\n";
    }
    return context.console.print(lines);
}

} // namespace

Result<void> completionCommand(const CommandContext& context)
{
    const std::string& shell = context.arguments.words.front();
    return shell == kDeviceCompletion ? printDevices(context)
                                      : context.console.print(completionScript(shell));
}

} // namespace tdw::cli
