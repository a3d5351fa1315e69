#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Value.h"

#include <libimobiledevice/libimobiledevice.h>

#include <optional>

extern "C" {

/// The device list server: writes {"Devices": [{"UDID", "Connection"}, …]} for every device that
/// the multiplexer knows, over USB and over the network.
/// @return the exit status: 0, or the library's code where the multiplexer cannot be asked
TDW_EXPORT int TDWDeviceListServerMain();

/// The device list items of a library's list, in its order.
TDW_EXPORT tdw::Array _TDWServerCreateDeviceListArray(const idevice_info_t* devices, int count);

/// The device list item of one entry, or none (and a warning) for an entry without a UDID.
TDW_EXPORT std::optional<tdw::Value> _TDWServerCreateDeviceListResponseItem(idevice_info_t device);
}
