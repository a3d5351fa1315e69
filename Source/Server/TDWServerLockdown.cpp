#include "Server/TDWServerLockdown.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyListNode.h"
#include "Server/DeviceHandles.h"
#include "Server/TDWServerImplementation.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <cstdlib>

using tdw::Error;
using tdw::Value;

namespace {

/// libplist's code for a node that is not there.
constexpr int kPlistInvalidArgument = -1;

/// Hands an error to the caller, or, where the caller wants none, answers with it.
int fail(int code, const Error& error, std::optional<Error>* outError)
{
    if (outError)
        *outError = error;
    else
        TDWSerializeErrorResponse(error);
    return code;
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

int TDWServerGetFoundationObjectFromRawPlist(
    plist_t node, std::optional<Value>& outObject, std::optional<Error>* outError)
{
    if (!node)
        return fail(
            kPlistInvalidArgument, TDWErrorCreate("plist_to_xml", kPlistInvalidArgument), outError);
    auto value = tdw::valueFromNode(node);
    if (!value)
        return std::abs(static_cast<int>(value.error().code()));
    outObject = *std::move(value);
    return 0;
}

std::optional<Value> TDWReadLockdownDomainDictionary(
    lockdownd_client_t client, const char* domain, std::optional<Error>& outError)
{
    tdw::PropertyListNode node;
    if (const int code = lockdownd_get_value(client, domain, nullptr, out(node))) {
        outError = TDWErrorCreate("lockdownd_get_value", code);
        return std::nullopt;
    }
    std::optional<Value> object;
    std::optional<Error> ignored;
    if (const int code = TDWServerGetFoundationObjectFromRawPlist(node.get(), object, &ignored)) {
        outError = TDWErrorCreate("TDWServerGetFoundationObjectFromRawPlist", code);
        return std::nullopt;
    }
    if (!object->asDictionary())
        tdw::reportError("Lockdown domain data should be a dictionary for domain \""
            + std::string(domain) + "\". Received: " + object->debugDescription());
    return object;
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

int TDWReadLockdownBool(lockdownd_client_t client, const char* domain, const char* key,
    bool& outBool, std::optional<Error>* outError)
{
    tdw::PropertyListNode node;
    if (const int code = lockdownd_get_value(client, domain, key, out(node)))
        return fail(code, TDWErrorCreate("lockdownd_get_value", code), outError);
    outBool = node && boolOf(node.get());
    return LOCKDOWN_E_SUCCESS;
}

int _TDWFetchCompanionDeviceIdentifiers(
    idevice_t device, std::optional<Value>& outIdentifiers, std::optional<Error>* outError)
{
    tdw::CompanionProxyHandle proxy;
    if (const int code = companion_proxy_client_start_service(device, out(proxy), TDWServerName()))
        return fail(code, TDWErrorCreate("companion_proxy_client_start_service", code), outError);

    tdw::PropertyListNode registry;
    const int code = companion_proxy_get_device_registry(proxy.get(), out(registry));
    if (code == COMPANION_PROXY_E_UNKNOWN_ERROR) {
        // This is how the library reports a reply without a list of watches.
        outIdentifiers = tdw::Array();
        return 0;
    }
    if (code != COMPANION_PROXY_E_SUCCESS)
        return fail(code, TDWErrorCreate("companion_proxy_get_device_registry", code), outError);

    std::optional<Error> ignored;
    if (const int conversion
        = TDWServerGetFoundationObjectFromRawPlist(registry.get(), outIdentifiers, &ignored))
        return fail(conversion,
            TDWErrorCreate("TDWServerGetFoundationObjectFromRawPlist", conversion), outError);
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
