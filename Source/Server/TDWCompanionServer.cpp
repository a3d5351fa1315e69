#include "Server/TDWCompanionServer.h"

#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/System/Trace.h"
#include "Server/PropertyListNode.h"
#include "Server/ServerMain.h"
#include "Server/TDWDeviceInfoServer.h"
#include "Server/TDWServerImplementation.h"
#include "Server/TDWServerLockdown.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <iterator>

using tdw::Array;
using tdw::DeviceSession;
using tdw::Dictionary;
using tdw::Result;
using tdw::Value;

namespace {

constexpr int kFirstIdentifierArgument = 3;

using Identifiers = std::vector<std::string>;

/// The watches to report: those of the arguments, or all that the phone knows.
Result<Identifiers> identifiers(DeviceSession& session, int argumentCount, char** arguments)
{
    if (argumentCount > kFirstIdentifierArgument)
        return Identifiers(arguments + kFirstIdentifierArgument, arguments + argumentCount);
    Identifiers result;
    const auto proxy = TDW_TRY(session.startCompanionProxy());
    const Value registry = TDW_TRY(tdw::readCompanionRegistry(proxy));
    for (const Value& identifier : *registry.asArray()) {
        if (const std::string* text = identifier.asString())
            result.push_back(*text);
        else
            tdw::reportWarning("Companion identifier is no text: " + identifier.debugDescription());
    }
    return result;
}

/// One value of a watch, or none of an optional key that it does not support.
Result<std::optional<Value>> readProperty(companion_proxy_client_t proxy,
    const std::string& identifier, const std::string& key, bool isOptional)
{
    tdw::PropertyListNode node;
    const int code = companion_proxy_get_value_from_registry(
        proxy, identifier.c_str(), key.c_str(), out(node));
    if (isOptional && code == COMPANION_PROXY_E_UNSUPPORTED_KEY)
        return std::optional<Value>();
    if (code != COMPANION_PROXY_E_SUCCESS)
        return TDWErrorCreate("companion_proxy_get_value_from_registry", code);
    const Value reply = TDW_TRY(tdw::readNode(node.get()));
    const Dictionary* values = reply.asDictionary();
    if (!values)
        return TDWErrorCreateWithMessage(
            "Expected companion registry response to be a dictionary.", 1);
    if (const Value* value = values->find(key))
        return std::optional(*value);
    if (isOptional)
        return std::optional<Value>();
    return TDWErrorCreateWithMessage(
        "Companion registry response did not contain required property " + key + ".", 1);
}

/// The values that one watch has under the keys.
Result<Dictionary> readProperties(
    DeviceSession& session, const std::string& identifier, const std::vector<std::string>& keys)
{
    Dictionary entry;
    for (const std::string& key : keys) {
        tdw::setErrorDetail(key);
        const auto proxy = TDW_TRY(session.startCompanionProxy());
        const tdw::TraceStep step("value of", identifier);
        const bool isOptional = TDWOptionalCompanionKeys().contains(key);
        if (auto value = TDW_TRY(readProperty(proxy, identifier, key, isOptional)))
            entry.set(key, *std::move(value));
    }
    return entry;
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

Result<tdw::ServerReply> gather(
    DeviceSession& session, const Identifiers& identifiers, bool batteryOnly)
{
    Array devices;
    for (const std::string& identifier : identifiers) {
        const auto& keys = batteryOnly ? _TDWCompanionBatteryKeys() : TDWCompanionKeys();
        Dictionary entry = TDW_TRY(readProperties(session, identifier, keys));
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
    return tdw::ServerReply { Dictionary { { kTDWDevicesKey, std::move(devices) } } };
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
    return tdw::answerRequest([&](DeviceSession& session) -> Result<tdw::ServerReply> {
        const char* udid = TDW_TRY(tdw::requiredUdid(argumentCount, arguments));
        TDW_TRY(session.open(udid, TDWParseDeviceOptionsFromArguments(argumentCount, arguments)));
        return gather(
            session, TDW_TRY(identifiers(session, argumentCount, arguments)), batteryOnly);
    });
}

int _TDWReadCompanionProperty(idevice_t device, const std::string& identifier,
    const std::string& key, bool isOptional, std::optional<Value>& outValue)
{
    const auto answer = [](const tdw::Error& error) {
        TDWSerializeErrorResponse(error);
        return static_cast<int>(error.code());
    };
    tdw::CompanionProxyHandle proxy;
    if (const int code = companion_proxy_client_start_service(device, out(proxy), TDWServerName()))
        return answer(TDWErrorCreate("companion_proxy_client_start_service", code));
    auto value = readProperty(proxy.get(), identifier, key, isOptional);
    if (!value)
        return answer(value.error());
    if (*value)
        outValue = **std::move(value);
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
