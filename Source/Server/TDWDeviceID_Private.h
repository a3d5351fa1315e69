#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Value.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <optional>

/// The device identity record: which device answered, {"udid", "address"}.

extern "C" {

/// Makes the record of two strings from `malloc`, and frees both.
/// @param udid not null
/// @param bluetoothAddress may be null, for a device that does not tell it
TDW_EXPORT tdw::Value TDWDeviceIDCreateFromUDIDAndBluetoothAddress(
    char* udid, char* bluetoothAddress);

/// The record of an open device, or none (and a diagnostic) where the library cannot tell its
/// UDID. An address that cannot be read is empty in the record.
TDW_EXPORT std::optional<tdw::Value> TDWDeviceIDCreate(idevice_t device, lockdownd_client_t client);
}
