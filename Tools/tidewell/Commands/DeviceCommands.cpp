#include "Commands/Commands.h"
#include "Commands/DeviceRequest.h"
#include "Devices/DeviceLookup.h"
#include "Errors/ErrorText.h"
#include "Interfaces/TDWServer.h"
#include "Output/DeviceInfoText.h"
#include "Output/Json.h"

// The commands that ask a device.

namespace tdw::cli {

namespace {

/// The connection type of a server's arguments.
std::string connectionArgument(const std::string* choice)
{
    if (choice && *choice == "usb")
        return "1";
    return choice && *choice == "network" ? "2" : "0";
}

Result<void> checkConnection(const std::string* choice, const ListedDevice& device)
{
    if (choice && *choice == "usb" && !device.isReachedBy(Connection::Usb))
        return notReachableBy(Connection::Usb, device);
    if (choice && *choice == "network" && !device.isReachedBy(Connection::Network))
        return notReachableBy(Connection::Network, device);
    return {};
}

} // namespace

Result<void> infoCommand(const Session& session)
{
    const auto device = TDW_TRY(findDevice(session.requests, session.arguments.words.front()));
    const std::string* choice = session.arguments.valueOf("--connection");
    TDW_TRY(checkConnection(choice, device));
    const Value info = TDW_TRY(requestFor(session,
        { .server = kTidewellServerInfo,
            .arguments = { device.udid, connectionArgument(choice) },
            .attempt = "Cannot ask \"" + device.udid + "\"" }));
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(info));

    const auto text
        = TDW_TRY(deviceInfoText(device, info, glyphsOfLocale(), session.console.outputColours()));
    TDW_TRY(session.console.print(text));
    for (const Error& warning : deviceInfoWarnings(info))
        session.console.say(warningText(warning, session.console.errorColours()));
    return {};
}

Result<void> batteryCommand(const Session& session)
{
    const auto device = TDW_TRY(findDevice(session.requests, session.arguments.words.front()));
    const Value battery = TDW_TRY(requestFor(session,
        { .server = kTidewellServerBattery,
            .arguments = { device.udid, connectionArgument(nullptr) },
            .attempt = "Cannot read the battery of \"" + device.udid + "\"" }));
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(battery));

    Table table;
    table.addRow({ batteryBar(battery, glyphsOfLocale()), { batteryState(battery) } });
    return session.console.print(table.text(session.console.outputColours()));
}

} // namespace tdw::cli
