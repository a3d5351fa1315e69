#include "Server/TDWPairingServer.h"

#include "Interfaces/TDWServer.h"
#include "Platform/System/Trace.h"
#include "Server/ServerMain.h"
#include "Server/TDWServerImplementation.h"
#include "Server/TDWServerLockdown.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <cstdint>
#include <string>
#include <string_view>

using tdw::DeviceSession;
using tdw::Result;
using tdw::ServerReply;

namespace {

/// @param code what the library said last, which is the status whatever the state is
ServerReply stateReply(TDWDevicePairingState state, int code)
{
    return { .content
        = tdw::Dictionary { { kTDWDeviceInfoPairingState, static_cast<std::uint32_t>(state) } },
        .status = code };
}

/// The answer for a call that ended with `code`: a device that does not trust this host yet is a
/// pairing state, anything else an error.
Result<ServerReply> refusalReply(const char* api, int code)
{
    if (!TDWLockdownErrorIsUnpairedDeviceError(code))
        return TDWErrorCreate(api, code);
    return stateReply(TDWDevicePairingStateFromLockdownErrorCode(code), code);
}

Result<void> openOverUsb(DeviceSession& session, const char* udid)
{
    TDW_TRY(session.open(udid, IDEVICE_LOOKUP_USBMUX));
    return session.connect(tdw::Handshake::No);
}

} // namespace

int TDWPairingServerMain(int argumentCount, char** arguments)
{
    const auto timeout = TDWServerNamed(kTidewellServerPairing)->timeout;
    TDWServerSetTimeoutInterval(static_cast<double>(timeout.count()));
    TDWServerInitialize();
    if (argumentCount <= 2)
        return tdw::answerRequest([](DeviceSession&) -> Result<ServerReply> {
            return TDWErrorCreateWithMessage("Action and device UDID must be provided.", 1);
        });

    const std::string_view action = arguments[1];
    const char* udid = arguments[2];
    tdw::reportLine("Requested action " + std::string(action) + " for device " + udid);
    if (action == kTDWPairingServerActionPair)
        return TDWPairingServerPair(udid);
    if (action == kTDWPairingServerActionUnpair)
        return TDWPairingServerUnpair(udid);
    return tdw::answerRequest([](DeviceSession&) -> Result<ServerReply> {
        return ServerReply { .content = TDWErrorCreateWithMessage("Unsupported action", 5),
            .status = 1 };
    });
}

int TDWPairingServerPair(const char* udid)
{
    return tdw::answerRequest([udid](DeviceSession& session) -> Result<ServerReply> {
        TDW_TRY(openOverUsb(session, udid));
        tdw::TraceStep step("pairing with", session.udid());
        if (const int code = step.ended(lockdownd_pair(session.lockdown(), nullptr)))
            return refusalReply("lockdownd_pair", code);
        // Whether the trust holds shows only in a new, trusted connection.
        session.disconnect();
        if (const auto trusted = session.connect(tdw::Handshake::Yes); !trusted)
            return refusalReply(
                "lockdownd_client_new_with_handshake", static_cast<int>(trusted.error().code()));
        return stateReply(TDWDevicePairingStatePaired, 0);
    });
}

int TDWPairingServerUnpair(const char* udid)
{
    return tdw::answerRequest([udid](DeviceSession& session) -> Result<ServerReply> {
        TDW_TRY(openOverUsb(session, udid));
        tdw::TraceStep step("end of the pairing with", session.udid());
        if (const int code = step.ended(lockdownd_unpair(session.lockdown(), nullptr)))
            return TDWErrorCreate("lockdownd_unpair", code);
        return stateReply(TDWDevicePairingStateUnpaired, 0);
    });
}
