#include "Commands/ConnectionChoice.h"

#include "Devices/DeviceLookup.h"

namespace tdw::cli {

Result<std::string> connectionArgument(const Session& session, const ListedDevice& device)
{
    const std::string* choice = session.arguments.valueOf("--connection");
    if (!choice || *choice == "any")
        return std::string("0");
    const auto connection = *choice == "usb" ? Connection::Usb : Connection::Network;
    if (!device.isReachedBy(connection))
        return notReachableBy(connection, device);
    return std::to_string(static_cast<int>(connection));
}

} // namespace tdw::cli
