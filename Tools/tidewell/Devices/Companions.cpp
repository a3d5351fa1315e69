#include "Devices/Companions.h"

#include "Devices/DeviceSelection.h"
#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"
#include "Support/TDWErrorKinds.h"

#include <algorithm>

namespace tdw::cli {

namespace {

DeviceQuery queryFor(const CompanionQuestion& question, const std::string& identifier)
{
    if (question.detail == CompanionDetail::Battery)
        return CompanionBatteriesQuery { question.udid, question.connectionType, { identifier } };
    return CompanionsQuery { question.udid, question.connectionType, { identifier } };
}

/// The one entry of an answer about one watch.
Result<Value> entryIn(const Value& payload)
{
    const Array* entries = payload.arrayAt(kTDWDevicesKey);
    if (entries && entries->size() == 1 && entries->front().asDictionary())
        return Value(entries->front());
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = "The answer is not in the expected form: " + payload.debugDescription() });
}

Error noCompanion(const std::string& word, const std::vector<std::string>& identifiers)
{
    std::string candidates;
    for (const std::string& identifier : identifiers)
        candidates += identifier + "\n";
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "No watch of the phone matches \"" + word + "\""
            + (candidates.empty() ? "." : ":\n" + candidates),
        .advice = "\"tidewell companions\" with the phone alone shows its watches." });
}

} // namespace

std::optional<std::vector<std::string>> companionIdentifiersIn(const Value& info)
{
    const Array* array = info.arrayAt(kTDWDeviceInfoCompanionDeviceIdentifiers);
    if (!array)
        return std::nullopt;
    std::vector<std::string> identifiers;
    for (const Value& item : *array) {
        if (const std::string* identifier = item.asString())
            identifiers.push_back(*identifier);
    }
    return identifiers;
}

std::optional<Error> companionLookupFailure(const Value& info)
{
    const auto warnings = warningsIn(info);
    const auto found = std::ranges::find_if(warnings, isCompanionLookup);
    return found == warnings.end() ? std::nullopt : std::optional(*found);
}

void sendCompanionRequest(DeviceRequests& requests, const CompanionQuestion& question,
    const std::string& identifier, std::function<void(Result<Value> entry)> handler)
{
    requests.send(queryFor(question, identifier),
        [handler = std::move(handler)](
            const Result<Value>& payload) { handler(payload ? entryIn(*payload) : payload); });
}

CompanionReport requestCompanions(DeviceRequests& requests, const CompanionQuestion& question)
{
    const auto answers
        = std::make_shared<std::vector<std::optional<Result<Value>>>>(question.identifiers.size());
    for (std::size_t i = 0; i < answers->size(); ++i)
        sendCompanionRequest(requests, question, question.identifiers[i],
            [answers, i](Result<Value> entry) { (*answers)[i].emplace(std::move(entry)); });
    requests.loop().runUntil([&] {
        return std::ranges::all_of(*answers, [](const auto& answer) { return answer.has_value(); });
    });

    CompanionReport report;
    for (std::size_t i = 0; i < answers->size(); ++i) {
        const Result<Value>& entry = *(*answers)[i];
        if (entry)
            report.entries.push_back(*entry);
        else
            report.warnings.push_back(whileTrying(
                "Cannot read the watch \"" + question.identifiers[i] + "\"", entry.error()));
    }
    return report;
}

Result<std::vector<std::string>> identifiersMeant(
    DeviceRequests& requests, const CompanionQuestion& all, const std::vector<std::string>& words)
{
    std::vector<ListedDevice> companions;
    for (const std::string& identifier : all.identifiers)
        companions.push_back({ identifier, {} });
    std::optional<std::vector<NamedDevice>> named;
    std::vector<std::string> meant;
    for (const std::string& word : words) {
        auto found = TDW_TRY(selectByUdid(word, companions));
        if (!found && !named) {
            named.emplace();
            CompanionQuestion question = all;
            question.detail = CompanionDetail::Everything;
            for (const Value& entry : requestCompanions(requests, question).entries) {
                const std::string* identifier = entry.stringAt(kTDWDeviceListItemUDID);
                const std::string* name = entry.stringAt(kTDWDeviceInfoDeviceName);
                if (identifier && name)
                    named->push_back({ { *identifier, {} }, *name });
            }
        }
        if (!found)
            found = TDW_TRY(selectByName(word, *named));
        if (!found)
            return noCompanion(word, all.identifiers);
        meant.push_back(found->udid);
    }
    return meant;
}

} // namespace tdw::cli
