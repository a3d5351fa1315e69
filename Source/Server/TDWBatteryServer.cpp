#include "Server/TDWBatteryServer.h"

#include "Interfaces/TDWResponse.h"
#include "Server/DeviceHandles.h"
#include "Server/ServerEnding.h"
#include "Server/TDWDeviceID_Private.h"
#include "Server/TDWServerLockdown.h"
#include "Support/TDWErrorHelpers.h"

namespace {

constexpr auto kEveryConnection
    = static_cast<enum idevice_options>(IDEVICE_LOOKUP_USBMUX | IDEVICE_LOOKUP_NETWORK);

int open(const char* udid, tdw::DeviceHandle& device, tdw::LockdownClientHandle& client)
{
    if (const int code = idevice_new_with_options(out(device), udid, kEveryConnection))
        return tdw::failCall("idevice_new_with_options", code);
    if (const int code
        = lockdownd_client_new_with_handshake(device.get(), out(client), TDWServerName()))
        return tdw::failCall("lockdownd_client_new", code);
    return 0;
}

int answerWithBattery(idevice_t device, lockdownd_client_t client)
{
    std::optional<tdw::Error> error;
    const auto battery = TDWReadLockdownDomainDictionary(client, kTDWLockdownDomainBattery, error);
    if (!battery) {
        TDWSerializeErrorResponse(*error);
        return 0;
    }
    return _TDWSerializeResponse(*battery, TDWDeviceIDCreate(device, client));
}

} // namespace

int TDWBatteryServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    if (argumentCount <= 1)
        return tdw::endServer(TDWSerializeErrorResponse(
            TDWErrorCreateWithMessage("Device UDID must be provided.", 1)));

    tdw::DeviceHandle device;
    tdw::LockdownClientHandle client;
    int status = open(arguments[1], device, client);
    if (status == 0)
        status = answerWithBattery(device.get(), client.get());
    return tdw::endServer(status, client, device);
}
