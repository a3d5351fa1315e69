#pragma once

#include "Platform/Export.h"

#include <string_view>

extern "C" {

/// In the payload of the device list: an array of device list items.
TDW_EXPORT extern const std::string_view kTDWDevicesKey;

/// In a device list item: the device's UDID, a string.
TDW_EXPORT extern const std::string_view kTDWDeviceListItemUDID;

/// In a device list item: how this entry is reached, an integer; 1 is USB, 2 is the network.
TDW_EXPORT extern const std::string_view kTDWDeviceListItemConnection;
}
