#include "Server/TDWServerLockdown.h"

#include "Interfaces/TDWResponse.h"
#include "Server/DeviceHandles.h"
#include "Server/PropertyListNode.h"
#include "Server/TDWServerImplementation.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <cstdlib>

using tdw::Error;
using tdw::Value;

namespace {

/// libplist's code for a node that is not there.
constexpr int kPlistInvalidArgument = -1;

/// What a rendered node that cannot be read comes to: its code has no sign.
int statusOf(const Error& error)
{
    return std::abs(static_cast<int>(error.code()));
}

/// Answers with an error.
int answer(const Error& error)
{
    TDWSerializeErrorResponse(error);
    return static_cast<int>(error.code());
}

Error registryError(int code)
{
    return TDWErrorCreate("companion_proxy_get_device_registry", code);
}

/// The watches in the companion proxy's reply to "GetDeviceRegistry".
tdw::Result<Value> watchesIn(plist_t reply)
{
    if (!reply || plist_get_node_type(reply) != PLIST_DICT)
        return registryError(COMPANION_PROXY_E_PLIST_ERROR);
    if (const plist_t watches = plist_dict_get_item(reply, "PairedDevicesArray")) {
        if (plist_get_node_type(watches) != PLIST_ARRAY)
            return registryError(COMPANION_PROXY_E_PLIST_ERROR);
        return tdw::readNode(watches);
    }
    const auto refusal = tdw::textFromNode(plist_dict_get_item(reply, "Error"));
    if (refusal && refusal != "NoPairedWatches")
        return registryError(COMPANION_PROXY_E_NO_DEVICES);
    return Value(tdw::Array());
}

bool boolOf(plist_t node)
{
    const auto type = plist_get_node_type(node);
    if (type == PLIST_BOOLEAN) {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    if (type == PLIST_STRING) {
        const auto text = tdw::textFromNode(node);
        return text == "1" || text == "true" || text == "YES";
    }
    if (type == PLIST_UINT) {
        std::uint64_t bits = 0;
        plist_get_uint_val(node, &bits);
        return static_cast<std::int64_t>(bits) > 0;
    }
    tdw::reportError(
        "Invalid plist node value type for bool: " + std::to_string(static_cast<int>(type)));
    return false;
}

} // namespace

int TDWServerGetFoundationObjectFromRawPlist(plist_t node, std::optional<Value>& outObject)
{
    if (!node)
        return answer(TDWErrorCreate("plist_to_xml", kPlistInvalidArgument));
    auto value = tdw::valueFromNode(node);
    if (!value) {
        outObject = std::nullopt;
        return statusOf(value.error());
    }
    outObject = *std::move(value);
    return 0;
}

std::optional<Value> TDWReadLockdownDomainDictionary(
    lockdownd_client_t client, const char* domain, std::optional<Error>& outError)
{
    auto values = tdw::readLockdownDomain(client, domain);
    if (values)
        return *std::move(values);
    outError = values.error();
    return std::nullopt;
}

int TDWReadLockdownString(lockdownd_client_t client, const char* domain, const char* key,
    std::optional<std::string>& outString)
{
    tdw::PropertyListNode node;
    const int code = lockdownd_get_value(client, domain, key, out(node));
    // The library can report success and give no node.
    if (code == LOCKDOWN_E_SUCCESS) {
        if (auto text = tdw::textFromNode(node.get()))
            outString = *std::move(text);
    }
    return code;
}

int TDWReadLockdownBool(
    lockdownd_client_t client, const char* domain, const char* key, bool& outBool)
{
    tdw::PropertyListNode node;
    if (const int code = lockdownd_get_value(client, domain, key, out(node)))
        return answer(TDWErrorCreate("lockdownd_get_value", code));
    outBool = node && boolOf(node.get());
    return LOCKDOWN_E_SUCCESS;
}

int _TDWFetchCompanionDeviceIdentifiers(idevice_t device, std::optional<Value>& outIdentifiers)
{
    tdw::CompanionProxyHandle proxy;
    if (const int code = companion_proxy_client_start_service(device, out(proxy), TDWServerName()))
        return answer(TDWErrorCreate("companion_proxy_client_start_service", code));
    auto identifiers = tdw::readCompanionRegistry(proxy.get());
    if (!identifiers)
        return answer(identifiers.error());
    outIdentifiers = *std::move(identifiers);
    return 0;
}

TDWDevicePairingState TDWDevicePairingStateFromLockdownErrorCode(int code)
{
    switch (code) {
    case LOCKDOWN_E_PASSWORD_PROTECTED:
    case LOCKDOWN_E_ESCROW_LOCKED:
    case LOCKDOWN_E_FMIP_PROTECTED:
        return TDWDevicePairingStateLocked;
    case LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING:
        return TDWDevicePairingStatePending;
    case LOCKDOWN_E_USER_DENIED_PAIRING:
        return TDWDevicePairingStateDenied;
    default:
        return TDWDevicePairingStateNotPaired;
    }
}

namespace tdw {

Result<Value> readNode(plist_t node)
{
    const char* const api = "TDWServerGetFoundationObjectFromRawPlist";
    if (!node)
        return TDWErrorCreate(api, kPlistInvalidArgument);
    auto value = valueFromNode(node);
    if (!value)
        return TDWErrorCreate(api, statusOf(value.error()));
    return value;
}

Result<Value> readLockdownDomain(lockdownd_client_t client, const char* domain)
{
    PropertyListNode node;
    if (const int code = lockdownd_get_value(client, domain, nullptr, out(node)))
        return TDWErrorCreate("lockdownd_get_value", code);
    auto values = TDW_TRY(readNode(node.get()));
    if (!values.asDictionary())
        reportError("Lockdown domain data should be a dictionary for domain \""
            + std::string(domain) + "\". Received: " + values.debugDescription());
    return values;
}

// Not through companion_proxy_get_device_registry: it gives a phone without watches the code -256,
// which from Debian 13's release on is also that of a connection that has ended.
Result<Value> readCompanionRegistry(companion_proxy_client_t proxy)
{
    const PropertyListNode request(plist_new_dict());
    plist_dict_set_item(request.get(), "Command", plist_new_string("GetDeviceRegistry"));
    if (const int code = companion_proxy_send(proxy, request.get()))
        return registryError(code);
    PropertyListNode reply;
    if (const int code = companion_proxy_receive(proxy, out(reply)))
        return registryError(code);
    return watchesIn(reply.get());
}

} // namespace tdw
