#include "Server/TDWCompanionServer.h"

#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyListNode.h"
#include "Server/DeviceHandles.h"
#include "Server/ServerEnding.h"
#include "Server/TDWDeviceInfoServer.h"
#include "Server/TDWServerLockdown.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <iterator>

using tdw::Array;
using tdw::Dictionary;
using tdw::Value;

namespace {

constexpr int kFirstIdentifierArgument = 3;

/// Answers for a reply that makes no sense.
int refuseReply(std::string_view message)
{
    TDWSerializeErrorResponse(TDWErrorCreateWithMessage(message, 1));
    return 1;
}

/// The watches to report: those of the arguments, or all that the phone knows.
int identifiers(
    idevice_t device, int argumentCount, char** arguments, std::vector<std::string>& result)
{
    if (argumentCount > kFirstIdentifierArgument) {
        result.assign(arguments + kFirstIdentifierArgument, arguments + argumentCount);
        return 0;
    }
    std::optional<Value> registry;
    if (const int code = _TDWFetchCompanionDeviceIdentifiers(device, registry))
        return code;
    const Array* known = registry ? registry->asArray() : nullptr;
    for (const Value& identifier : known ? *known : Array()) {
        if (const std::string* text = identifier.asString())
            result.push_back(*text);
        else
            tdw::reportWarning("Companion identifier is no text: " + identifier.debugDescription());
    }
    return 0;
}

/// Reads all keys of one watch into `entry`.
int readProperties(idevice_t device, const std::string& identifier,
    const std::vector<std::string>& keys, Dictionary& entry)
{
    for (const std::string& key : keys) {
        tdw::setErrorDetail(key);
        std::optional<Value> value;
        const bool isOptional = TDWOptionalCompanionKeys().contains(key);
        if (const int status
            = _TDWReadCompanionProperty(device, identifier, key, isOptional, value))
            return status;
        if (value)
            entry.set(key, *std::move(value));
    }
    return 0;
}

Dictionary batteryOf(const Dictionary& entry)
{
    Dictionary battery;
    for (const std::string& key : _TDWCompanionBatteryKeys()) {
        if (const Value* value = entry.find(key))
            battery.set(key, *value);
    }
    return battery;
}

int answer(idevice_t device, const std::vector<std::string>& identifiers, bool batteryOnly)
{
    Array devices;
    for (const std::string& identifier : identifiers) {
        Dictionary entry;
        const auto& keys = batteryOnly ? _TDWCompanionBatteryKeys() : TDWCompanionKeys();
        if (const int status = readProperties(device, identifier, keys, entry))
            return status;
        const Dictionary battery = batteryOf(entry);
        if (batteryOnly)
            entry = Dictionary();
        entry.set(kTDWDeviceListItemUDID, identifier);
        entry.set(kTDWDeviceInfoBattery, battery);
        if (!batteryOnly)
            entry.set(kTDWDeviceInfoPairingState,
                static_cast<std::uint32_t>(TDWDevicePairingStatePaired));
        devices.emplace_back(std::move(entry));
    }
    return TDWSerializeResponse(Dictionary { { kTDWDevicesKey, std::move(devices) } });
}

int openAndAnswer(tdw::DeviceHandle& device, int argumentCount, char** arguments, bool batteryOnly)
{
    const auto options = TDWParseDeviceOptionsFromArguments(argumentCount, arguments);
    if (const int code = idevice_new_with_options(out(device), arguments[1], options))
        return tdw::failCall("idevice_new_with_options", code);
    std::vector<std::string> companions;
    if (const int code = identifiers(device.get(), argumentCount, arguments, companions))
        return code;
    return answer(device.get(), companions, batteryOnly);
}

} // namespace

int TDWCompanionServerMain(int argumentCount, char** arguments)
{
    return _TDWCompanionServerRun(argumentCount, arguments, false);
}

int TDWCompanionBatteryServerMain(int argumentCount, char** arguments)
{
    return _TDWCompanionServerRun(argumentCount, arguments, true);
}

int _TDWCompanionServerRun(int argumentCount, char** arguments, bool batteryOnly)
{
    TDWServerInitialize();
    if (argumentCount <= 1)
        return tdw::endServer(TDWSerializeErrorResponse(
            TDWErrorCreateWithMessage("Device UDID must be provided.", 1)));
    tdw::DeviceHandle device;
    const int status = openAndAnswer(device, argumentCount, arguments, batteryOnly);
    return tdw::endServer(status, device);
}

int _TDWReadCompanionProperty(idevice_t device, const std::string& identifier,
    const std::string& key, bool isOptional, std::optional<Value>& outValue)
{
    tdw::CompanionProxyHandle proxy;
    if (const int code = companion_proxy_client_start_service(device, out(proxy), TDWServerName()))
        return tdw::failCall("companion_proxy_client_start_service", code);
    tdw::PropertyListNode node;
    const int code = companion_proxy_get_value_from_registry(
        proxy.get(), identifier.c_str(), key.c_str(), out(node));
    if (isOptional && code == COMPANION_PROXY_E_UNSUPPORTED_KEY)
        return 0;
    if (code != COMPANION_PROXY_E_SUCCESS)
        return tdw::failCall("companion_proxy_get_value_from_registry", code);

    std::optional<Value> reply;
    std::optional<tdw::Error> ignored;
    if (const int conversion
        = TDWServerGetFoundationObjectFromRawPlist(node.get(), reply, &ignored))
        return tdw::failCall("TDWServerGetFoundationObjectFromRawPlist", conversion);
    const Dictionary* values = reply->asDictionary();
    if (!values)
        return refuseReply("Expected companion registry response to be a dictionary.");
    const Value* value = values->find(key);
    if (!value && !isOptional)
        return refuseReply(
            "Companion registry response did not contain required property " + key + ".");
    if (value)
        outValue = *value;
    return 0;
}

const std::set<std::string>& TDWKeysExcludedFromCompanion()
{
    static const std::set<std::string> kKeys { std::string(kTDWDeviceInfoHardwarePlatform),
        std::string(kTDWDeviceInfoReleaseType) };
    return kKeys;
}

const std::vector<std::string>& TDWCompanionKeys()
{
    static const std::vector<std::string> kKeys = [] {
        std::vector<std::string> keys;
        std::copy_if(TDWDeviceInfoKeys().begin(), TDWDeviceInfoKeys().end(),
            std::back_inserter(keys),
            [](const std::string& key) { return !TDWKeysExcludedFromCompanion().contains(key); });
        keys.insert(
            keys.end(), _TDWCompanionBatteryKeys().begin(), _TDWCompanionBatteryKeys().end());
        return keys;
    }();
    return kKeys;
}

const std::set<std::string>& TDWOptionalCompanionKeys()
{
    static const std::set<std::string> kKeys { std::string(kTDWBatteryIsCharging),
        std::string(kTDWExternalConnected), std::string(kTDWFullyCharged) };
    return kKeys;
}

const std::vector<std::string>& _TDWCompanionBatteryKeys()
{
    static const std::vector<std::string> kKeys { std::string(kTDWBatteryCurrentCapacity),
        std::string(kTDWBatteryIsCharging), std::string(kTDWExternalConnected),
        std::string(kTDWFullyCharged) };
    return kKeys;
}
