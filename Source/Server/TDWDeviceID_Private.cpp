#include "Server/TDWDeviceID_Private.h"

#include "Interfaces/TDWDeviceInfo.h"
#include "Platform/Values/Utf8.h"
#include "Server/DeviceHandles.h"
#include "Server/PropertyListNode.h"
#include "Support/Diagnostics.h"

#include <cstring>

using tdw::LibraryText;
using tdw::Value;

namespace {

/// The address as the device tells it, or null.
LibraryText bluetoothAddress(lockdownd_client_t client)
{
    tdw::PropertyListNode node;
    const auto code
        = lockdownd_get_value(client, nullptr, kTDWDeviceInfoBluetoothAddress.data(), out(node));
    const auto text = code == LOCKDOWN_E_SUCCESS ? tdw::textFromNode(node.get()) : std::nullopt;
    return LibraryText(text ? strdup(text->c_str()) : nullptr);
}

} // namespace

Value TDWDeviceIDCreateFromUDIDAndBluetoothAddress(char* udid, char* bluetoothAddress)
{
    const LibraryText ownedUdid(udid);
    const LibraryText ownedAddress(bluetoothAddress);
    return tdw::Dictionary { { kTDWDeviceIdentifierUDID, tdw::withInvalidUtf8Replaced(udid) },
        { kTDWDeviceIdentifierBluetoothAddress,
            tdw::withInvalidUtf8Replaced(bluetoothAddress ? bluetoothAddress : "") } };
}

std::optional<Value> TDWDeviceIDCreate(idevice_t device, lockdownd_client_t client)
{
    LibraryText udid;
    const idevice_error_t code = idevice_get_udid(device, out(udid));
    if (code != IDEVICE_E_SUCCESS || !udid) {
        tdw::reportError("Unexpected: idevice_get_udid failed");
        return std::nullopt;
    }
    LibraryText address = bluetoothAddress(client);
    return TDWDeviceIDCreateFromUDIDAndBluetoothAddress(udid.release(), address.release());
}
