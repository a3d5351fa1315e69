#include "Server/TDWDeviceListServer.h"

#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Handle.h"
#include "Platform/Text.h"
#include "Server/TDWServerImplementation.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <cstdint>

using tdw::Array;
using tdw::Dictionary;
using tdw::Value;

namespace {

using DeviceList = tdw::Handle<idevice_info_t, &idevice_device_list_extended_free>;

} // namespace

int TDWDeviceListServerMain()
{
    TDWServerInitialize();
    DeviceList devices;
    int count = 0;
    const idevice_error_t code = idevice_get_device_list_extended(out(devices), &count);
    int status = code;
    if (code != IDEVICE_E_SUCCESS)
        TDWSerializeErrorResponse(TDWErrorCreate("idevice_get_device_list_extended", code));
    else
        status = TDWSerializeResponse(Dictionary {
            { kTDWDevicesKey, _TDWServerCreateDeviceListArray(devices.get(), count) } });
    TDWServerStopTimeoutClock();
    return status;
}

Array _TDWServerCreateDeviceListArray(const idevice_info_t* devices, int count)
{
    Array result;
    result.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        if (auto item = _TDWServerCreateDeviceListResponseItem(devices[i]))
            result.push_back(*std::move(item));
    }
    return result;
}

std::optional<Value> _TDWServerCreateDeviceListResponseItem(idevice_info_t device)
{
    if (!device->udid) {
        tdw::reportWarning("No UDID for device");
        return std::nullopt;
    }
    return Dictionary { { kTDWDeviceListItemUDID, tdw::withInvalidUtf8Replaced(device->udid) },
        { kTDWDeviceListItemConnection, static_cast<std::uint32_t>(device->conn_type) } };
}
