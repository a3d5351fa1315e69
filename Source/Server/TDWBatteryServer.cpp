#include "Server/TDWBatteryServer.h"

#include "Platform/System/Trace.h"
#include "Server/ServerMain.h"
#include "Server/TDWServerImplementation.h"
#include "Server/TDWServerLockdown.h"

using tdw::ServerReply;

namespace {

constexpr auto kEveryConnection
    = static_cast<enum idevice_options>(IDEVICE_LOOKUP_USBMUX | IDEVICE_LOOKUP_NETWORK);

} // namespace

int TDWBatteryServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    return tdw::answerRequest([&](tdw::DeviceSession& session) -> tdw::Result<ServerReply> {
        const char* udid = TDW_TRY(tdw::requiredUdid(argumentCount, arguments));
        TDW_TRY(session.open(udid, kEveryConnection));
        TDW_TRY(session.connect(tdw::Handshake::Yes));
        const tdw::TraceStep step("battery of", session.udid());
        auto battery = tdw::readLockdownDomain(session.lockdown(), kTDWLockdownDomainBattery);
        if (!battery)
            return ServerReply { .content = battery.error(), .status = 0 };
        return ServerReply { *std::move(battery), session.identity() };
    });
}
