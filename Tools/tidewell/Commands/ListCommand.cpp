#include "Commands/Commands.h"
#include "Devices/DeviceList.h"
#include "Devices/DeviceSelection.h"
#include "Multiplexer/UsbBus.h"
#include "Terminal/Table.h"
#include "Text/Json.h"

#include <algorithm>

namespace tdw::cli {

namespace {

/// Says which devices are on the cable all the same.
void warnOfMissing(const CommandContext& context, const std::vector<ListedDevice>& devices)
{
    if (!isOwnUsbBus(multiplexerAddress().isFromEnvironment))
        return;
    const auto isListed = [&](const std::string& udid) {
        return std::ranges::any_of(devices, [&](const ListedDevice& device) {
            return device.isReachedBy(ConnectionType::Usb)
                && comparableUdid(device.udid) == comparableUdid(udid);
        });
    };
    for (const std::string& udid : missingFromList(devicesOnUsbBus(), isListed))
        warn(context, notShownByMultiplexer(udid));
}

} // namespace

Result<void> listCommand(const CommandContext& context)
{
    const Value payload = TDW_TRY(requestDeviceList(context.requests));
    const auto devices = TDW_TRY(parseDeviceList(payload));
    if (context.arguments.has("--json"))
        TDW_TRY(context.console.print(jsonLine(payload)));
    else if (devices.empty())
        context.console.say("No device can be reached. Connect one with a cable and unlock it.\n");
    else {
        Table table({ "UDID", "CONNECTION" });
        for (const ListedDevice& device : devices)
            table.addRow({ { device.udid }, { connectionNames(device) } });
        TDW_TRY(context.console.print(table.text(context.console.outputColours())));
    }
    warnOfMissing(context, devices);
    return {};
}

} // namespace tdw::cli
