#include "Commands/Commands.h"
#include "Devices/DeviceFailure.h"
#include "Devices/DeviceLookup.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Platform/Values/Utf8.h"

// The commands that change a setting of a device.

namespace tdw::cli {

namespace {

/// More than any identifier needs, and much less than a command line can hold.
constexpr std::size_t kLongestBuddy = 1024;

Result<void> validateBuddy(const std::string& text)
{
    if (text.size() <= kLongestBuddy && withControlCharactersEscaped(text) == text)
        return {};
    return commandLineError({ .status = ExitStatus::Usage,
        .reason = "\"" + text.substr(0, kLongestBuddy)
            + "\" cannot be a wireless buddy: it is too long, or holds characters that cannot be "
              "shown." });
}

struct Setting {
    std::string_view key;
    std::string value;
    std::string attempt;
};

Result<Value> change(
    const CommandContext& context, const ListedDevice& device, const Setting& setting)
{
    const std::string attempt = setting.attempt + " of \"" + device.udid + "\"";
    if (const auto paired = requirePairing(context.requests, device.udid); !paired)
        return whileTrying(attempt, paired.error());
    return askDevice(context.requests, device.udid,
        SettingQuery {
            device.udid, kTDWLockdownDomainWireless, std::string(setting.key), setting.value },
        attempt);
}

} // namespace

Result<void> wifiCommand(const CommandContext& context)
{
    const auto& words = context.arguments.words;
    const bool isOn = words[1] == "on";
    const auto device = TDW_TRY(findDeviceOnCable(context.requests, words[0]));
    const Value answer = TDW_TRY(change(context, device,
        { kTDWDeviceInfoEnableWiFiConnections, isOn ? "1" : "0",
            "Cannot change the Wi-Fi connections" }));
    return reportDone(
        context, answer, "Wi-Fi connections of \"" + device.udid + "\" are " + words[1] + " now.");
}

Result<void> buddyCommand(const CommandContext& context)
{
    const auto& words = context.arguments.words;
    TDW_TRY(validateBuddy(words[1]));
    const auto device = TDW_TRY(findDeviceOnCable(context.requests, words[0]));
    const Value answer = TDW_TRY(change(context, device,
        { kTDWDeviceInfoWirelessBuddyID, words[1], "Cannot change the wireless buddy" }));
    return reportDone(context, answer,
        "The wireless buddy of \"" + device.udid + "\" is \"" + words[1] + "\" now.");
}

} // namespace tdw::cli
