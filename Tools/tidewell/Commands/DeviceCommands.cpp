#include "Commands/Commands.h"
#include "Commands/ConnectionChoice.h"
#include "Commands/DeviceRequest.h"
#include "Devices/DeviceLookup.h"
#include "Devices/Watches.h"
#include "Errors/ErrorText.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWServer.h"
#include "Output/DeviceInfoText.h"
#include "Output/Json.h"
#include "Output/WatchTable.h"
#include "Support/TDWErrorHelpers.h"

// The commands that ask a device.

namespace tdw::cli {

namespace {

/// In the answer for programs: what was found out about the watches of a phone.
constexpr std::string_view kCompanionsKey = "Companions";

/// The payload with what is known of the watches added to it.
Value withWatches(const Value& info, const WatchReport& watches)
{
    const Dictionary* fields = info.asDictionary();
    if (!fields || !watchIdentifiersIn(info))
        return info;
    Dictionary result = *fields;
    result.set(kCompanionsKey, watches.entries);
    for (const Error& warning : watches.warnings)
        TDWAppendErrorToWarningsArray(&result, &warning);
    return result;
}

} // namespace

Result<void> infoCommand(const Session& session)
{
    const auto device = TDW_TRY(findDevice(session.requests, session.arguments.words.front()));
    const auto connection = TDW_TRY(connectionArgument(session, device));
    const Value info = TDW_TRY(requestFor(session,
        { .server = kTidewellServerInfo,
            .arguments = { device.udid, connection,
                std::string(kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag) },
            .attempt = "Cannot ask \"" + device.udid + "\"" }));
    const auto watches = [&] {
        return requestWatches(session.requests,
            { .server = kTidewellServerCompanion,
                .udid = device.udid,
                .connection = connection,
                .identifiers = watchIdentifiersIn(info).value_or(std::vector<std::string>()) });
    };
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(withWatches(info, watches())));

    const auto colours = session.console.outputColours();
    // What is known is shown before the watches are asked, who may take their time.
    const auto text = TDW_TRY(deviceInfoText(device, info, glyphsOfLocale(), colours));
    TDW_TRY(session.console.print(text));
    auto warnings = deviceInfoWarnings(info);
    const auto report = watches();
    if (!report.entries.empty())
        TDW_TRY(
            session.console.print("\n" + watchTable(report.entries, glyphsOfLocale(), colours)));
    warnings.insert(warnings.end(), report.warnings.begin(), report.warnings.end());
    for (const Error& warning : warnings)
        session.console.say(warningText(warning, session.console.errorColours()));
    return {};
}

Result<void> batteryCommand(const Session& session)
{
    const auto device = TDW_TRY(findDevice(session.requests, session.arguments.words.front()));
    const Value battery = TDW_TRY(requestFor(session,
        { .server = kTidewellServerBattery,
            .arguments = { device.udid },
            .attempt = "Cannot read the battery of \"" + device.udid + "\"" }));
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(battery));

    Table table;
    table.addRow({ batteryBar(battery, glyphsOfLocale()), { batteryState(battery) } });
    return session.console.print(table.text(session.console.outputColours()));
}

} // namespace tdw::cli
