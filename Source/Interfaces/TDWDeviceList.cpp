#include "Interfaces/TDWDeviceList.h"

const std::string_view kTDWDevicesKey = "Devices";
const std::string_view kTDWDeviceListItemUDID = "UDID";
const std::string_view kTDWDeviceListItemConnection = "Connection";
