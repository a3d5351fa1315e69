#include "Server/TDWDeviceListServer.h"

#include "Interfaces/TDWDeviceList.h"
#include "Platform/System/Trace.h"
#include "Platform/Values/Utf8.h"
#include "Server/ServerMain.h"
#include "Server/TDWServerImplementation.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <cstdint>

using tdw::Array;
using tdw::Dictionary;
using tdw::Value;

int TDWDeviceListServerMain()
{
    TDWServerInitialize();
    return tdw::answerRequest([](tdw::DeviceSession&) -> tdw::Result<tdw::ServerReply> {
        tdw::DeviceListHandle devices;
        int count = 0;
        tdw::TraceStep step("list of devices");
        if (const int code = step.ended(idevice_get_device_list_extended(out(devices), &count)))
            return TDWErrorCreate("idevice_get_device_list_extended", code);
        return tdw::ServerReply { Dictionary {
            { kTDWDevicesKey, _TDWServerCreateDeviceListArray(devices.get(), count) } } };
    });
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
