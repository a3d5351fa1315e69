#include "Devices/Watches.h"

#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"

namespace tdw::cli {

namespace {

/// How the device info server's warning about the look-up begins to describe itself.
constexpr std::string_view kLookup = "API: _TDWFetchCompanionDeviceIdentifiers ";

const Array* arrayIn(const Value& payload, std::string_view key)
{
    const Dictionary* fields = payload.asDictionary();
    const Value* value = fields ? fields->find(key) : nullptr;
    return value ? value->asArray() : nullptr;
}

/// The one entry of an answer about one watch.
Result<Value> requestWatch(
    const Requests& requests, const WatchQuestion& question, const std::string& identifier)
{
    const Value payload = TDW_TRY(
        requests.send(question.server, { question.udid, question.connection, identifier }));
    const Array* entries = arrayIn(payload, kTDWDevicesKey);
    if (!entries || entries->size() != 1 || !entries->front().asDictionary())
        return commandLineError({ .status = ExitStatus::Failure,
            .reason = "The answer is not in the expected form: " + payload.debugDescription() });
    return Value(entries->front());
}

} // namespace

std::optional<std::vector<std::string>> watchIdentifiersIn(const Value& info)
{
    const Array* array = arrayIn(info, kTDWDeviceInfoCompanionDeviceIdentifiers);
    if (!array)
        return std::nullopt;
    std::vector<std::string> identifiers;
    for (const Value& item : *array) {
        if (const std::string* identifier = item.asString())
            identifiers.push_back(*identifier);
    }
    return identifiers;
}

std::optional<Error> watchLookupFailure(const Value& info)
{
    for (const Error& warning : warningsIn(info)) {
        const Value* description = warning.userInfo().find(kDebugDescriptionErrorKey);
        const std::string* text = description ? description->asString() : nullptr;
        if (text && text->starts_with(kLookup))
            return warning;
    }
    return std::nullopt;
}

WatchReport requestWatches(const Requests& requests, const WatchQuestion& question)
{
    WatchReport report;
    for (const std::string& identifier : question.identifiers) {
        auto entry = requestWatch(requests, question, identifier);
        if (entry)
            report.entries.push_back(*std::move(entry));
        else
            report.warnings.push_back(
                whileTrying("Cannot read the watch \"" + identifier + "\"", entry.error()));
    }
    return report;
}

} // namespace tdw::cli
