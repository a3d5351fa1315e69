#include "Commands/Commands.h"
#include "Devices/Companions.h"
#include "Devices/DeviceFailure.h"
#include "Devices/DeviceLookup.h"
#include "Errors/CommandLineError.h"
#include "Support/TDWErrorHelpers.h"
#include "Text/CompanionTable.h"
#include "Text/DeviceInfoText.h"
#include "Text/Json.h"

// The commands that ask a device.

namespace tdw::cli {

namespace {

/// In the answer for programs: what was found out about the watches of a phone.
constexpr std::string_view kCompanionsKey = "Companions";

/// The payload with what is known of the watches added to it.
Value withCompanions(const Value& info, const CompanionReport& companions)
{
    const Dictionary* fields = info.asDictionary();
    if (!fields || !companionIdentifiersIn(info))
        return info;
    Dictionary result = *fields;
    result.set(kCompanionsKey, companions.entries);
    for (const Error& warning : companions.warnings)
        TDWAppendErrorToWarningsArray(&result, &warning);
    return result;
}

} // namespace

Result<void> infoCommand(const CommandContext& context)
{
    const auto device = TDW_TRY(findDevice(context.requests, context.arguments.words.front()));
    const auto connection = TDW_TRY(connectionTypeFor(context, device));
    const Value info = TDW_TRY(askDevice(context.requests, device.udid,
        DeviceInfoQuery { .udid = device.udid,
            .connectionType = connection,
            .includesCompanionIdentifiers = true,
            .mayPair = false },
        "Cannot ask \"" + device.udid + "\""));
    const auto companions = [&] {
        return requestCompanions(context.requests,
            { .udid = device.udid,
                .connectionType = connection,
                .identifiers = companionIdentifiersIn(info).value_or(std::vector<std::string>()) });
    };
    if (context.arguments.has("--json"))
        return context.console.print(jsonLine(withCompanions(info, companions())));

    const auto colours = context.console.outputColours();
    // What is known is shown before the watches are asked, which may take their time.
    const auto text = TDW_TRY(deviceInfoText(device, info, glyphsOfLocale(), colours));
    TDW_TRY(context.console.print(text));
    const auto report = companions();
    if (!report.entries.empty())
        TDW_TRY(context.console.print(
            "\n" + companionTable(report.entries, glyphsOfLocale(), colours)));
    for (const auto& warnings : { deviceInfoWarnings(info), report.warnings }) {
        for (const Error& warning : warnings)
            warn(context, warning);
    }
    return {};
}

Result<void> batteryCommand(const CommandContext& context)
{
    const auto device = TDW_TRY(findDevice(context.requests, context.arguments.words.front()));
    const std::string attempt = "Cannot read the battery of \"" + device.udid + "\"";
    if (const auto paired = requirePairing(context.requests, device.udid); !paired)
        return whileTrying(attempt, paired.error());
    const Value battery = TDW_TRY(
        askDevice(context.requests, device.udid, BatteryQuery { .udid = device.udid }, attempt));
    if (context.arguments.has("--json"))
        return context.console.print(jsonLine(battery));

    Table table;
    table.addRow({ batteryBar(battery, glyphsOfLocale()), { batteryState(battery) } });
    return context.console.print(table.text(context.console.outputColours()));
}

} // namespace tdw::cli
