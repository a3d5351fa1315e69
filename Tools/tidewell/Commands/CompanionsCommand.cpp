#include "Commands/Commands.h"
#include "Commands/ConnectionChoice.h"
#include "Commands/DeviceRequest.h"
#include "Devices/DeviceLookup.h"
#include "Devices/DeviceSelection.h"
#include "Devices/Watches.h"
#include "Errors/CommandLineError.h"
#include "Errors/ErrorText.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWServer.h"
#include "Output/Json.h"
#include "Output/WatchTable.h"
#include "Support/TDWErrorHelpers.h"

#include <utility>

namespace tdw::cli {

namespace {

/// The error of a device that says nothing of watches because it is not paired.
Error notPaired(const Value& info)
{
    const auto warnings = warningsIn(info);
    if (!warnings.empty())
        return warnings.front();
    return commandLineError(
        { .status = ExitStatus::NotTrusted, .reason = "The device does not tell of its watches." });
}

Result<std::vector<std::string>> requestIdentifiers(
    const Session& session, const std::string& udid, const std::string& connection)
{
    const std::string attempt = "Cannot ask \"" + udid + "\" for its watches";
    const Value info = TDW_TRY(requestFor(session,
        { .server = kTidewellServerInfo,
            .arguments = { udid, connection,
                std::string(kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag) },
            .attempt = attempt }));
    auto identifiers = watchIdentifiersIn(info);
    if (!identifiers)
        return whileTrying(attempt, notPaired(info));
    if (const auto failure = watchLookupFailure(info); failure && identifiers->empty())
        return whileTrying(attempt, *failure);
    return *std::move(identifiers);
}

Result<std::vector<std::string>> givenIdentifiers(const std::vector<std::string>& words)
{
    const std::vector<std::string> identifiers(words.begin() + 1, words.end());
    for (const std::string& identifier : identifiers)
        TDW_TRY(validateDeviceText(identifier));
    return identifiers;
}

Result<void> printJson(const Session& session, const WatchReport& report)
{
    Dictionary answer { { kTDWDevicesKey, report.entries } };
    for (const Error& warning : report.warnings)
        TDWAppendErrorToWarningsArray(&answer, &warning);
    return session.console.print(jsonLine(answer));
}

} // namespace

Result<void> companionsCommand(const Session& session)
{
    const auto& words = session.arguments.words;
    std::vector<std::string> identifiers;
    if (words.size() > 1)
        identifiers = TDW_TRY(givenIdentifiers(words));
    const auto device = TDW_TRY(words.empty() ? findOnlyDevice(session.requests)
                                              : findDevice(session.requests, words.front()));
    const auto connection = TDW_TRY(connectionArgument(session, device));
    if (identifiers.empty())
        identifiers = TDW_TRY(requestIdentifiers(session, device.udid, connection));
    const bool isBatteryOnly = session.arguments.has("--battery");
    const auto report = requestWatches(session.requests,
        { .server = isBatteryOnly ? kTidewellServerCompanionBattery : kTidewellServerCompanion,
            .udid = device.udid,
            .connection = connection,
            .identifiers = std::move(identifiers) });
    if (report.entries.empty() && !report.warnings.empty())
        return report.warnings.front();
    if (session.arguments.has("--json"))
        return printJson(session, report);
    if (report.entries.empty()) {
        session.console.say("No watch is paired with \"" + device.udid + "\".\n");
        return {};
    }
    const auto table = isBatteryOnly ? &watchBatteryTable : &watchTable;
    TDW_TRY(session.console.print(
        table(report.entries, glyphsOfLocale(), session.console.outputColours())));
    for (const Error& warning : report.warnings)
        session.console.say(warningText(warning, session.console.errorColours()));
    return {};
}

} // namespace tdw::cli
