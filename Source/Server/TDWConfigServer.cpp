#include "Server/TDWConfigServer.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyListNode.h"
#include "Platform/Text.h"
#include "Server/DeviceHandles.h"
#include "Server/ServerEnding.h"
#include "Server/TDWDeviceID_Private.h"
#include "Server/TDWServerLockdown.h"
#include "Support/TDWErrorHelpers.h"

namespace {

constexpr int kArgumentCount = 5;

struct Setting {
    const char* domain;
    const char* key;
    tdw::PropertyListNode value;
};

int refuse(std::string_view message)
{
    TDWSerializeErrorResponse(TDWErrorCreateWithMessage(message, 1));
    return 1;
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

int writeSetting(
    const char* udid, Setting setting, tdw::DeviceHandle& device, tdw::LockdownClientHandle& client)
{
    if (const int code = idevice_new_with_options(out(device), udid, IDEVICE_LOOKUP_USBMUX))
        return tdw::failCall("idevice_new_with_options", code);
    if (const int code
        = lockdownd_client_new_with_handshake(device.get(), out(client), TDWServerName()))
        return tdw::failCall("lockdownd_client_new", code);
    // The library takes the node over, whatever comes of the call.
    if (const int code
        = lockdownd_set_value(client.get(), setting.domain, setting.key, setting.value.release()))
        return tdw::failCall("lockdownd_set_value", code);
    return _TDWSerializeResponse(tdw::Dictionary(), TDWDeviceIDCreate(device.get(), client.get()));
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
    if (!domain || !key)
        return refuse("Domain and/or key is nil.");
    const auto& allowList = TDWDeviceConfigAllowList();
    const auto keys = allowList.find(std::string_view(domain));
    if (keys == allowList.end())
        return refuse("Specified domain is not allow-listed.");
    if (!keys->second.contains(key))
        return refuse("Specified key is not allow-listed.");
    return 0;
}

int TDWConfigServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    if (argumentCount < kArgumentCount)
        return tdw::endServer(
            refuse("Device UDID, lockdown domain, key, and value must be provided."));
    const char* udid = arguments[1];
    Setting setting { arguments[2], arguments[3], nullptr };
    if (const int status = TDWCheckDeviceConfigAllowListed(setting.domain, setting.key))
        return tdw::endServer(status);
    setting.value = nodeFor(setting.key, arguments[4]);
    if (!setting.value)
        return tdw::endServer(refuse("Invalid value: must be either 0 or 1."));

    tdw::DeviceHandle device;
    tdw::LockdownClientHandle client;
    const int status = writeSetting(udid, std::move(setting), device, client);
    return tdw::endServer(status, client, device);
}
