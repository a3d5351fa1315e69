#include "Text/DeviceInfoText.h"

#include "Devices/Companions.h"
#include "Devices/DeviceFailure.h"
#include "Devices/PairingState.h"
#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"
#include "Terminal/Table.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace tdw::cli {

namespace {

constexpr std::int64_t kGetProhibited = -13;

std::string text(const Dictionary& info, std::string_view key)
{
    const std::string* string = info.stringAt(key);
    return string ? *string : std::string();
}

/// "a b (c)" of those parts that are there.
std::string phrase(const std::string& first, const std::string& second, const std::string& remark)
{
    std::string result = first;
    if (!second.empty())
        result += (result.empty() ? "" : " ") + second;
    if (!remark.empty())
        result += result.empty() ? remark : " (" + remark + ")";
    return result;
}

bool knowsWirelessValues(const Value& info)
{
    const auto warnings = warningsIn(info);
    return std::none_of(warnings.begin(), warnings.end(), [](const Error& warning) {
        return isMissingWirelessValue(warning, kTDWDeviceInfoEnableWiFiConnections);
    });
}

/// A table of labels and values that leaves out what is not known.
class LabelTable {
public:
    void add(std::string label, Cell value)
    {
        if (!value.text.empty())
            m_table.addRow({ { std::move(label), Colour::Dim }, std::move(value) });
    }

    std::string text(ColourMode colours) const { return m_table.text(colours); }

private:
    Table m_table;
};

void addBattery(LabelTable& table, const Dictionary& info, Glyphs glyphs)
{
    if (const Value* battery = info.find(kTDWDeviceInfoBattery)) {
        table.add("Battery", batteryBar(*battery, glyphs));
        table.add("Power", { batteryState(*battery) });
    } else if (const Value* error = info.find(kTDWDeviceInfoBatteryError)) {
        table.add("Battery", { "unknown: " + TDWErrorParse(*error).failureReason() });
    }
}

void addWireless(LabelTable& table, const Dictionary& info)
{
    if (!knowsWirelessValues(info)) {
        table.add("Wi-Fi connections", { "unknown" });
        return;
    }
    table.add("Wi-Fi connections",
        { info.boolAt(kTDWDeviceInfoEnableWiFiConnections) == true ? "on" : "off" });
    const auto buddy = text(info, kTDWDeviceInfoWirelessBuddyID);
    table.add("Wireless buddy", { buddy.empty() ? "none" : buddy });
}

} // namespace

Result<std::string> deviceInfoText(
    const ListedDevice& device, const Value& payload, Glyphs glyphs, ColourMode colours)
{
    const auto state = TDW_TRY(pairingStateOf(payload));
    const Dictionary& info = *payload.asDictionary();
    const bool isPaired = state == TDWDevicePairingStatePaired;
    LabelTable table;
    table.add("Name", { text(info, kTDWDeviceInfoDeviceName), Colour::Bold });
    table.add("UDID", { device.udid });
    table.add("Connection", { connectionNames(device) });
    table.add("Pairing", { pairingStateName(state), isPaired ? Colour::Green : Colour::Magenta });
    table.add("Model",
        { phrase(text(info, kTDWDeviceInfoProductType), text(info, kTDWDeviceInfoHardwareModel),
            text(info, kTDWDeviceInfoDeviceClass)) });
    table.add("Software",
        { phrase(text(info, kTDWDeviceInfoProductName), text(info, kTDWDeviceInfoProductVersion),
            text(info, kTDWDeviceInfoBuildVersion)) });
    table.add("Serial number", { text(info, kTDWDeviceInfoSerialNumber) });
    table.add("Wi-Fi address", { text(info, kTDWDeviceInfoWiFiAddress) });
    table.add("Bluetooth address", { text(info, kTDWDeviceInfoBluetoothAddress) });
    addBattery(table, info, glyphs);
    // An unpaired device does not tell these.
    if (isPaired)
        addWireless(table, info);
    return table.text(colours);
}

std::vector<Error> deviceInfoWarnings(const Value& info)
{
    auto warnings = warningsIn(info);
    // Over the network a device without a session refuses each value in turn; once is enough.
    const auto isProhibited = [](const Error& warning) {
        return warning.domain() == kTDWLockdownErrorDomain && warning.code() == kGetProhibited;
    };
    if (std::erase_if(warnings, isProhibited) > 0)
        warnings.push_back(commandLineError({ .status = ExitStatus::NotTrusted,
            .reason = "The device tells nothing more over the network now.",
            .advice = "Connect it with the cable." }));
    if (knowsWirelessValues(info))
        // Most devices have no buddy, which is no reason for a warning.
        std::erase_if(warnings, [](const Error& warning) {
            return isMissingWirelessValue(warning, kTDWDeviceInfoWirelessBuddyID);
        });
    // Only phones have a service to look watches up with.
    const auto lookup = companionLookupFailure(info);
    if (lookup && text(*info.asDictionary(), kTDWDeviceInfoDeviceClass) != "iPhone")
        std::erase(warnings, *lookup);
    else if (lookup)
        std::ranges::replace(
            warnings, *lookup, whileTrying("Cannot ask for its watches", serviceFailure(*lookup)));
    return warnings;
}

} // namespace tdw::cli
