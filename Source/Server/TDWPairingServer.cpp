#include "Server/TDWPairingServer.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/FileHandle.h"
#include "Server/DeviceHandles.h"
#include "Server/ServerEnding.h"
#include "Server/TDWServerLockdown.h"
#include "Support/TDWErrorHelpers.h"

#include <unistd.h>

#include <string>
#include <string_view>

using tdw::DeviceHandle;
using tdw::LockdownClientHandle;

namespace {

/// The user has to find the device, unlock it and read a dialog.
constexpr double kTimeoutSeconds = 20.0;

void answerWithState(TDWDevicePairingState state)
{
    TDWSerializeResponse(
        tdw::Dictionary { { kTDWDeviceInfoPairingState, static_cast<std::uint32_t>(state) } });
}

/// Answers for a call that ended with `code`: a device that does not trust this host yet is a
/// pairing state, anything else an error.
int answerWithRefusal(const char* api, int code)
{
    if (!TDWLockdownErrorIsUnpairedDeviceError(code))
        return tdw::failCall(api, code);
    answerWithState(TDWDevicePairingStateFromLockdownErrorCode(code));
    return code;
}

int openOverUsb(const char* udid, DeviceHandle& device, LockdownClientHandle& client)
{
    if (const int code = idevice_new_with_options(out(device), udid, IDEVICE_LOOKUP_USBMUX))
        return tdw::failCall("idevice_new_with_options", code);
    if (const int code = lockdownd_client_new(device.get(), out(client), TDWServerName()))
        return tdw::failCall("lockdownd_client_new", code);
    return 0;
}

int pair(idevice_t device, LockdownClientHandle& client)
{
    if (const int code = lockdownd_pair(client.get(), nullptr))
        return answerWithRefusal("lockdownd_pair", code);
    // Whether the trust holds shows only in a new, trusted connection.
    lockdownd_goodbye(client.get());
    client.reset();
    if (const int code = lockdownd_client_new_with_handshake(device, out(client), TDWServerName()))
        return answerWithRefusal("lockdownd_client_new_with_handshake", code);
    answerWithState(TDWDevicePairingStatePaired);
    return 0;
}

int unpair(lockdownd_client_t client)
{
    if (const int code = lockdownd_unpair(client, nullptr))
        return tdw::failCall("lockdownd_unpair", code);
    answerWithState(TDWDevicePairingStateUnpaired);
    return 0;
}

void announce(std::string_view action, std::string_view udid)
{
    const std::string line
        = "Requested action " + std::string(action) + " for device " + std::string(udid) + '\n';
    (void)tdw::writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(line)));
}

} // namespace

int TDWPairingServerMain(int argumentCount, char** arguments)
{
    TDWServerSetTimeoutInterval(kTimeoutSeconds);
    TDWServerInitialize();
    if (argumentCount <= 2)
        return tdw::endServer(TDWSerializeErrorResponse(
            TDWErrorCreateWithMessage("Action and device UDID must be provided.", 1)));

    const std::string_view action = arguments[1];
    const char* udid = arguments[2];
    announce(action, udid);
    if (action == kTDWPairingServerActionPair)
        return TDWPairingServerPair(udid);
    if (action == kTDWPairingServerActionUnpair)
        return TDWPairingServerUnpair(udid);
    TDWSerializeErrorResponse(TDWErrorCreateWithMessage("Unsupported action", 5));
    return tdw::endServer(1);
}

int TDWPairingServerPair(const char* udid)
{
    DeviceHandle device;
    LockdownClientHandle client;
    int status = openOverUsb(udid, device, client);
    if (status == 0)
        status = pair(device.get(), client);
    return tdw::endServer(status, client, device);
}

int TDWPairingServerUnpair(const char* udid)
{
    DeviceHandle device;
    LockdownClientHandle client;
    int status = openOverUsb(udid, device, client);
    if (status == 0)
        status = unpair(client.get());
    return tdw::endServer(status, client, device);
}
