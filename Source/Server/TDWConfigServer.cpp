#include "Server/TDWConfigServer.h"

#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/System/Trace.h"
#include "Server/PropertyListNode.h"
#include "Server/ServerMain.h"
#include "Server/TDWServerImplementation.h"
#include "Support/TDWErrorHelpers.h"

using tdw::Error;
using tdw::Result;
using tdw::ServerReply;

namespace {

constexpr int kArgumentCount = 5;

Error refusal(std::string_view message)
{
    return TDWErrorCreateWithMessage(message, 1);
}

/// Success for a key of a domain that may be written.
Result<void> checkAllowListed(const char* domain, const char* key)
{
    if (!domain || !key)
        return refusal("Domain and/or key is nil.");
    const auto& allowList = TDWDeviceConfigAllowList();
    const auto keys = allowList.find(std::string_view(domain));
    if (keys == allowList.end())
        return refusal("Specified domain is not allow-listed.");
    if (!keys->second.contains(key))
        return refusal("Specified key is not allow-listed.");
    return {};
}

/// The node to write for `text` under `key`; null for a text that is no value of that key.
tdw::PropertyListNode nodeFor(std::string_view key, const char* text)
{
    if (key != kTDWDeviceInfoEnableWiFiConnections)
        return tdw::PropertyListNode(plist_new_string(text));
    if (*text != '0' && *text != '1')
        return nullptr;
    return tdw::PropertyListNode(plist_new_bool(*text == '1' ? 1 : 0));
}

} // namespace

const TDWDeviceConfigKeys& TDWDeviceConfigAllowList()
{
    static const TDWDeviceConfigKeys kAllowList {
        { kTDWLockdownDomainWireless,
            { std::string(kTDWDeviceInfoEnableWiFiConnections),
                std::string(kTDWDeviceInfoWirelessBuddyID) } },
    };
    return kAllowList;
}

int TDWCheckDeviceConfigAllowListed(const char* domain, const char* key)
{
    const auto allowed = checkAllowListed(domain, key);
    return allowed ? 0 : TDWSerializeErrorResponse(allowed.error());
}

int TDWConfigServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    return tdw::answerRequest([&](tdw::DeviceSession& session) -> Result<ServerReply> {
        if (argumentCount < kArgumentCount)
            return refusal("Device UDID, lockdown domain, key, and value must be provided.");
        const char* const domain = arguments[2];
        const char* const key = arguments[3];
        TDW_TRY(checkAllowListed(domain, key));
        tdw::PropertyListNode value = nodeFor(key, arguments[4]);
        if (!value)
            return refusal("Invalid value: must be either 0 or 1.");
        TDW_TRY(session.open(arguments[1], IDEVICE_LOOKUP_USBMUX));
        TDW_TRY(session.connect(tdw::Handshake::Yes));
        // The library takes the node over, whatever comes of the call.
        tdw::TraceStep step("setting of", session.udid());
        if (const int code
            = step.ended(lockdownd_set_value(session.lockdown(), domain, key, value.release())))
            return TDWErrorCreate("lockdownd_set_value", code);
        return ServerReply { tdw::Dictionary(), session.identity() };
    });
}
