#include "Commands/Commands.h"
#include "Devices/DeviceList.h"
#include "Output/Json.h"
#include "Output/Table.h"

namespace tdw::cli {

Result<void> listCommand(const Session& session)
{
    const Value payload = TDW_TRY(requestDeviceList(session.requests));
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(payload));

    const auto devices = TDW_TRY(parseDeviceList(payload));
    if (devices.empty()) {
        session.console.say("No device can be reached. Connect one with a cable and unlock it.\n");
        return {};
    }
    Table table({ "UDID", "CONNECTION" });
    for (const ListedDevice& device : devices)
        table.addRow({ { device.udid }, { connectionNames(device) } });
    return session.console.print(table.text(session.console.outputColours()));
}

} // namespace tdw::cli
