#include "Output/DeviceInfoText.h"

#include "Devices/Watches.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWResponse.h"
#include "Output/Table.h"
#include "Pairing/PairingState.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <string_view>

namespace tdw::cli {

namespace {

std::string text(const Dictionary& info, std::string_view key)
{
    const Value* value = info.find(key);
    const std::string* string = value ? value->asString() : nullptr;
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

/// The warning of a wireless value that is not there, which is usual: most devices have no buddy.
bool isAboutWirelessValue(const Error& warning, std::string_view key)
{
    return warning.domain() == kTidewellErrorDomain && warning.code() == -1
        && warning.failureReason().starts_with(key);
}

bool knowsWirelessValues(const Value& info)
{
    const auto warnings = warningsIn(info);
    return std::none_of(warnings.begin(), warnings.end(), [](const Error& warning) {
        return isAboutWirelessValue(warning, kTDWDeviceInfoEnableWiFiConnections);
    });
}

/// A table of labels and values that leaves out what is not known.
class Sheet {
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

void addBattery(Sheet& sheet, const Dictionary& info, Glyphs glyphs)
{
    if (const Value* battery = info.find(kTDWDeviceInfoBattery)) {
        sheet.add("Battery", batteryBar(*battery, glyphs));
        sheet.add("Power", { batteryState(*battery) });
    } else if (const Value* error = info.find(kTDWDeviceInfoBatteryError)) {
        sheet.add("Battery", { "unknown: " + TDWErrorParse(*error).failureReason() });
    }
}

void addWireless(Sheet& sheet, const Dictionary& info)
{
    if (!knowsWirelessValues(info)) {
        sheet.add("Wi-Fi connections", { "unknown" });
        return;
    }
    const Value* isEnabled = info.find(kTDWDeviceInfoEnableWiFiConnections);
    sheet.add("Wi-Fi connections", { isEnabled && isEnabled->asBoolean() == true ? "on" : "off" });
    const auto buddy = text(info, kTDWDeviceInfoWirelessBuddyID);
    sheet.add("Wireless buddy", { buddy.empty() ? "none" : buddy });
}

} // namespace

Result<std::string> deviceInfoText(
    const ListedDevice& device, const Value& payload, Glyphs glyphs, ColourMode colours)
{
    const auto state = TDW_TRY(pairingStateOf(payload));
    const Dictionary& info = *payload.asDictionary();
    const bool isPaired = state == TDWDevicePairingStatePaired;
    Sheet sheet;
    sheet.add("Name", { text(info, kTDWDeviceInfoDeviceName), Colour::Bold });
    sheet.add("UDID", { device.udid });
    sheet.add("Connection", { connectionNames(device) });
    sheet.add("Pairing", { pairingStateName(state), isPaired ? Colour::Green : Colour::Yellow });
    sheet.add("Model",
        { phrase(text(info, kTDWDeviceInfoProductType), text(info, kTDWDeviceInfoHardwareModel),
            text(info, kTDWDeviceInfoDeviceClass)) });
    sheet.add("Software",
        { phrase(text(info, kTDWDeviceInfoProductName), text(info, kTDWDeviceInfoProductVersion),
            text(info, kTDWDeviceInfoBuildVersion)) });
    sheet.add("Serial number", { text(info, kTDWDeviceInfoSerialNumber) });
    sheet.add("Wi-Fi address", { text(info, kTDWDeviceInfoWiFiAddress) });
    sheet.add("Bluetooth address", { text(info, kTDWDeviceInfoBluetoothAddress) });
    addBattery(sheet, info, glyphs);
    // A device that is not paired tells nothing of these.
    if (isPaired)
        addWireless(sheet, info);
    return sheet.text(colours);
}

std::vector<Error> deviceInfoWarnings(const Value& info)
{
    auto warnings = warningsIn(info);
    if (knowsWirelessValues(info))
        std::erase_if(warnings, [](const Error& warning) {
            return isAboutWirelessValue(warning, kTDWDeviceInfoWirelessBuddyID);
        });
    // Only phones have a service to look watches up with.
    const auto lookup = watchLookupFailure(info);
    if (lookup && text(*info.asDictionary(), kTDWDeviceInfoDeviceClass) != "iPhone")
        std::erase(warnings, *lookup);
    return warnings;
}

} // namespace tdw::cli
