#include "Commands/Commands.h"
#include "Model/Json.h"
#include "Model/SimulatorError.h"
#include "Platform/System/FileHandle.h"
#include "Recording/ReaderRun.h"
#include "Recording/Reading.h"
#include "Recording/RecordedScenario.h"
#include "Recording/Replacement.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <span>

namespace tdw::simulator {

namespace {

constexpr const char* kStandardOutput = "-";

/// Only its owner reads a recording: it may still hold private values.
constexpr mode_t kFileMode = 0600;

/// The shortest identifier that is not in a whole file by chance.
constexpr std::size_t kCheckedLength = 12;

void note(const std::string& text)
{
    const std::string line = "tdwsimulator: " + text + "\n";
    (void)writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(line)));
}

/// The devices to record, as the list of devices has them.
Result<std::vector<Dictionary>> chosenDevices(const RecordOptions& options)
{
    if (options.all == !options.udids.empty())
        return simulatorError("give the UDIDs of the devices to record, or --all");
    for (const std::string& udid : options.udids) {
        if (!isDeviceIdentifier(udid))
            return simulatorError(
                "\"" + udid + "\" is not a device identifier (24 to 40 of 0-9, A-F and hyphens)");
    }
    const Dictionary list = TDW_TRY(runReader({}, std::chrono::seconds(options.timeoutSeconds)));
    std::vector<Dictionary> connected;
    if (const Array* devices = list.arrayAt(reading::kDevices)) {
        for (const Value& device : *devices)
            connected.push_back(device.asDictionary() ? *device.asDictionary() : Dictionary());
    }
    if (options.all && connected.empty())
        return simulatorError("no device is connected");
    if (options.all)
        return connected;
    std::vector<Dictionary> chosen;
    for (const std::string& udid : options.udids) {
        const auto found = std::ranges::find_if(connected, [&](const Dictionary& device) {
            const std::string* other = device.stringAt(reading::kUdid);
            return other && *other == udid;
        });
        if (found == connected.end())
            return simulatorError("there is no device " + udid);
        if (std::ranges::find(chosen, *found) == chosen.end())
            chosen.push_back(*found);
    }
    return chosen;
}

/// Why a device tells no more than it tells every host; empty where it tells all.
std::string withheld(const Dictionary& reading)
{
    if (reading.boolAt(reading::kHasSession).value_or(false))
        return {};
    if (!reading.boolAt(reading::kHasPairRecord).value_or(false))
        return "this computer is not paired with it (tidewell pair)";
    const std::string* error = reading.stringAt(reading::kSessionError);
    if (error && *error == "InvalidHostID")
        return "it trusts this computer no more (tidewell pair)";
    return "it is locked; unlock it";
}

Result<Dictionary> readDevice(const Dictionary& device, const RecordOptions& options)
{
    const std::string udid = *device.stringAt(reading::kUdid);
    std::vector<std::string> arguments { udid };
    if (options.withWallpaper)
        arguments.emplace_back(reading::kWithWallpaper);
    Dictionary reading
        = TDW_TRY(runReader(arguments, std::chrono::seconds(options.timeoutSeconds)));
    const std::string reason = withheld(reading);
    if (!reason.empty() && !options.all)
        return simulatorError(udid + " cannot be recorded: " + reason);
    if (!reason.empty())
        note(udid + ": only what it tells every host is recorded: " + reason);
    if (const Value* connections = device.find(reading::kConnections))
        reading.set(reading::kConnections, *connections);
    return reading;
}

} // namespace

Result<int> recordCommand(const RecordOptions& options)
{
    const bool isFile = options.output != kStandardOutput;
    if (isFile)
        TDW_TRY(checkFileDestination(options.output, options.overwrite));
    std::vector<Dictionary> readings;
    for (const Dictionary& device : TDW_TRY(chosenDevices(options)))
        readings.push_back(TDW_TRY(readDevice(device, options)));

    Replacement replacement;
    const Json scenario = recordedScenario(readings, replacement);
    const std::string text = scenario.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    if (const auto left = replacement.identifierIn(text, kCheckedLength))
        return simulatorError("nothing is written: \"" + *left + "\" would be in the scenario");
    if (const auto played = scenarioFromText(text, {}); !played)
        return simulatorError(
            "the simulator cannot play what was read: " + played.error().failureReason());
    const auto bytes = std::as_bytes(std::span(text));
    if (isFile)
        TDW_TRY(writeWholeFile(options.output, bytes, options.overwrite, kFileMode));
    else if (const auto written = writeToDescriptor(STDOUT_FILENO, bytes); !written)
        return simulatorError("Cannot write standard output: " + written.error().failureReason());
    note(std::to_string(readings.size()) + (readings.size() == 1 ? " device, " : " devices, ")
        + std::to_string(replacement.keptCount()) + " values as they are, "
        + std::to_string(replacement.replacedCount()) + " replaced");
    return 0;
}

} // namespace tdw::simulator
