#include "Commands/Commands.h"
#include "Devices/Companions.h"
#include "Devices/DeviceFailure.h"
#include "Devices/DeviceLookup.h"
#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceList.h"
#include "Support/TDWErrorHelpers.h"
#include "Text/CompanionTable.h"
#include "Text/Json.h"

#include <utility>

namespace tdw::cli {

namespace {

/// The error of a device that lists no watches because it is locked or does not trust this
/// computer.
Error notTold(const Value& info)
{
    const auto warnings = warningsIn(info);
    if (!warnings.empty())
        return warnings.front();
    return commandLineError(
        { .status = ExitStatus::NotTrusted, .reason = "The device does not list its watches." });
}

/// The watches that the phone names.
Result<std::vector<std::string>> requestIdentifiers(
    const CommandContext& context, const std::string& udid, std::uint64_t connectionType)
{
    const std::string attempt = "Cannot ask \"" + udid + "\" for its watches";
    if (const auto paired = requirePairing(context.requests, udid); !paired)
        return whileTrying(attempt, paired.error());
    const Value info = TDW_TRY(askDevice(context.requests, udid,
        DeviceInfoQuery { .udid = udid,
            .connectionType = connectionType,
            .includesCompanionIdentifiers = true,
            .mayPair = false },
        attempt));
    auto identifiers = companionIdentifiersIn(info);
    if (!identifiers)
        return whileTrying(attempt, notTold(info));
    if (const auto failure = companionLookupFailure(info); failure && identifiers->empty())
        return whileTrying(attempt, explainedFailure(context.requests, udid, *failure));
    return *std::move(identifiers);
}

Result<void> validateWords(const std::vector<std::string>& words)
{
    for (const std::string& word : words)
        TDW_TRY(validateDeviceText(word));
    return {};
}

Result<void> printJson(const CommandContext& context, const CompanionReport& report)
{
    Dictionary answer { { kTDWDevicesKey, report.entries } };
    for (const Error& warning : report.warnings)
        TDWAppendErrorToWarningsArray(&answer, &warning);
    return context.console.print(jsonLine(answer));
}

} // namespace

Result<void> companionsCommand(const CommandContext& context)
{
    const auto& words = context.arguments.words;
    TDW_TRY(validateWords(words));
    const auto device = TDW_TRY(words.empty() ? findOnlyDevice(context.requests)
                                              : findDevice(context.requests, words.front()));
    const bool isBatteryOnly = context.arguments.has("--battery");
    const auto connectionType = TDW_TRY(connectionTypeFor(context, device));
    CompanionQuestion question {
        .detail = isBatteryOnly ? CompanionDetail::Battery : CompanionDetail::Everything,
        .udid = device.udid,
        .connectionType = connectionType,
    };
    question.identifiers
        = TDW_TRY(requestIdentifiers(context, device.udid, question.connectionType));
    if (words.size() > 1)
        question.identifiers = TDW_TRY(
            identifiersMeant(context.requests, question, { words.begin() + 1, words.end() }));
    const auto report = requestCompanions(context.requests, question);
    if (report.entries.empty() && !report.warnings.empty())
        return explainedFailure(context.requests, device.udid, report.warnings.front());
    if (context.arguments.has("--json"))
        return printJson(context, report);
    if (report.entries.empty()) {
        context.console.say("No watch is paired with \"" + device.udid + "\".\n");
        return {};
    }
    const auto table = isBatteryOnly ? &companionBatteryTable : &companionTable;
    TDW_TRY(context.console.print(
        table(report.entries, glyphsOfLocale(), context.console.outputColours())));
    for (const Error& warning : report.warnings)
        warn(context, warning);
    return {};
}

} // namespace tdw::cli
