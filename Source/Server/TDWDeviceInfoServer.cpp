#include "Server/TDWDeviceInfoServer.h"

#include "Interfaces/TDWResponse.h"
#include "Server/DeviceHandles.h"
#include "Server/ServerEnding.h"
#include "Server/TDWDeviceID_Private.h"
#include "Server/TDWServerLockdown.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <iterator>

using tdw::Dictionary;
using tdw::Error;
using tdw::Value;

namespace {

constexpr int kMissingValueCode = -1;

/// Gathers the payload for one device, step by step. Each step answers 0 or the status with which
/// the request ends; the error envelope is written by then.
class DeviceInfo {
public:
    int open(const char* udid, enum idevice_options options)
    {
        int code = idevice_new_with_options(out(m_device), udid, options);
        const bool networkOnly = (options & IDEVICE_LOOKUP_USBMUX) == 0;
        if (code == IDEVICE_E_NO_DEVICE && networkOnly) {
            tdw::setErrorDetail("Lookup over network failed, fallback to USB attempted.");
            warn(TDWErrorCreate("idevice_new_with_options", code));
            code = idevice_new_with_options(out(m_device), udid,
                static_cast<enum idevice_options>(options | IDEVICE_LOOKUP_USBMUX));
        }
        return code == IDEVICE_E_SUCCESS ? 0 : tdw::failCall("idevice_new_with_options", code);
    }

    int connect()
    {
        int code
            = lockdownd_client_new_with_handshake(m_device.get(), out(m_client), TDWServerName());
        if (code == LOCKDOWN_E_SUCCESS) {
            m_state = TDWDevicePairingStatePaired;
            return 0;
        }
        if (!TDWLockdownErrorIsUnpairedDeviceError(code))
            return tdw::failCall("lockdownd_client_new", code);
        warn(TDWErrorCreate("lockdownd_client_new", code));
        m_state = TDWDevicePairingStateFromLockdownErrorCode(code);
        code = lockdownd_client_new(m_device.get(), out(m_client), TDWServerName());
        return code == LOCKDOWN_E_SUCCESS ? 0 : tdw::failCall("lockdownd_client_new", code);
    }

    void readIdentity()
    {
        for (const std::string& key :
            isPaired() ? TDWDeviceInfoKeys() : TDWUnpairedDeviceInfoKeys())
            readString(key);
    }

    void readBattery()
    {
        std::optional<Error> error;
        const auto battery
            = TDWReadLockdownDomainDictionary(m_client.get(), kTDWLockdownDomainBattery, error);
        if (battery)
            m_payload.set(kTDWDeviceInfoBattery, *battery);
        else
            m_payload.set(kTDWDeviceInfoBatteryError, TDWCreateErrorResponseDictionary(*error));
    }

    void readWireless()
    {
        std::optional<Error> error;
        const auto wireless
            = TDWReadLockdownDomainDictionary(m_client.get(), kTDWLockdownDomainWireless, error);
        if (error)
            warn(*error);
        const Dictionary* values = wireless ? wireless->asDictionary() : nullptr;
        readWifiConnections(values ? values->find(kTDWDeviceInfoEnableWiFiConnections) : nullptr);
        const Value* buddy = values ? values->find(kTDWDeviceInfoWirelessBuddyID) : nullptr;
        if (buddy && buddy->asString())
            m_payload.set(kTDWDeviceInfoWirelessBuddyID, *buddy);
        else
            warnOfWirelessValue(kTDWDeviceInfoWirelessBuddyID);
    }

    void readCompanionIdentifiers()
    {
        std::optional<Value> identifiers = tdw::Array();
        std::optional<Error> error;
        if (const int code
            = _TDWFetchCompanionDeviceIdentifiers(m_device.get(), identifiers, &error))
            warn(TDWErrorCreate("_TDWFetchCompanionDeviceIdentifiers", code));
        m_payload.set(kTDWDeviceInfoCompanionDeviceIdentifiers, *identifiers);
    }

    int answer()
    {
        m_payload.set(kTDWDeviceInfoEnableWiFiConnections, m_enablesWifi);
        m_payload.set(kTDWDeviceInfoPairingState, static_cast<std::uint32_t>(m_state));
        return _TDWSerializeResponse(m_payload, TDWDeviceIDCreate(m_device.get(), m_client.get()));
    }

    int end(int status) { return tdw::endServer(status, m_client, m_device); }

    bool isPaired() const { return m_state == TDWDevicePairingStatePaired; }

private:
    void warn(const Error& error) { TDWAppendErrorToWarningsArray(&m_payload, &error); }

    void warnOfWirelessValue(std::string_view key)
    {
        warn(TDWErrorCreateWithMessage(
            std::string(key) + " wireless domain key had missing or invalid value",
            kMissingValueCode));
    }

    void readString(const std::string& key)
    {
        std::optional<std::string> text;
        const int code = TDWReadLockdownString(m_client.get(), nullptr, key.c_str(), text);
        if (code != LOCKDOWN_E_SUCCESS) {
            if (TDWIgnoreReadFailureInfoKeys().contains(key))
                return;
            tdw::setErrorDetail(key);
            warn(TDWErrorCreate("lockdownd_get_value", code));
        } else if (text) {
            m_payload.set(key, *std::move(text));
        }
    }

    /// A boolean, as any number can stand for one.
    void readWifiConnections(const Value* value)
    {
        if (value && value->asBoolean())
            m_enablesWifi = *value->asBoolean();
        else if (value && value->asInteger())
            m_enablesWifi = value->asInteger()->bits() != 0;
        else if (value && value->asReal())
            m_enablesWifi = *value->asReal() != 0;
        else
            warnOfWirelessValue(kTDWDeviceInfoEnableWiFiConnections);
    }

    tdw::DeviceHandle m_device;
    tdw::LockdownClientHandle m_client;
    TDWDevicePairingState m_state = TDWDevicePairingStateNotPaired;
    bool m_enablesWifi = false;
    Dictionary m_payload;
};

bool wantsCompanionIdentifiers(int argumentCount, char** arguments)
{
    return std::any_of(arguments, arguments + argumentCount, [](const char* argument) {
        return argument == kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag;
    });
}

int gather(DeviceInfo& info, int argumentCount, char** arguments)
{
    const auto options = TDWParseDeviceOptionsFromArguments(argumentCount, arguments);
    if (const int status = info.open(arguments[1], options))
        return status;
    if (const int status = info.connect())
        return status;
    info.readIdentity();
    if (info.isPaired()) {
        info.readBattery();
        info.readWireless();
        if (wantsCompanionIdentifiers(argumentCount, arguments))
            info.readCompanionIdentifiers();
    }
    return info.answer();
}

} // namespace

const std::vector<std::string>& TDWDeviceInfoKeys()
{
    static const std::vector<std::string> kKeys { std::string(kTDWDeviceInfoDeviceName),
        std::string(kTDWDeviceInfoDeviceClass), std::string(kTDWDeviceInfoHardwareModel),
        std::string(kTDWDeviceInfoProductType), std::string(kTDWDeviceInfoDeviceColor),
        std::string(kTDWDeviceInfoWiFiAddress), std::string(kTDWDeviceInfoBluetoothAddress),
        std::string(kTDWDeviceInfoSerialNumber), std::string(kTDWDeviceInfoHardwarePlatform),
        std::string(kTDWDeviceInfoProductName), std::string(kTDWDeviceInfoProductVersion),
        std::string(kTDWDeviceInfoBuildVersion), std::string(kTDWDeviceInfoReleaseType) };
    return kKeys;
}

const std::set<std::string>& _TDWUnpairedDeviceReadableKeys()
{
    static const std::set<std::string> kKeys { "BasebandCertId", "BasebandSerialNumber",
        "BasebandVersion", "BoardId", "BuildVersion", "CPUArchitecture", "ChipID", "DeviceClass",
        "DeviceColor", "DeviceName", "DieID", "HardwareModel", "HasSiDP",
        "HumanReadableProductVersionString", "PartitionType", "ProductName", "ProductType",
        "ProductVersion", "ProductionSOC", "ProtocolVersion", "SupportedDeviceFamilies",
        "TelephonyCapability", "UniqueChipID", "UniqueDeviceID", "UntrustedHostBUID",
        "WiFiAddress" };
    return kKeys;
}

const std::vector<std::string>& TDWUnpairedDeviceInfoKeys()
{
    static const std::vector<std::string> kKeys = [] {
        std::vector<std::string> keys;
        std::copy_if(TDWDeviceInfoKeys().begin(), TDWDeviceInfoKeys().end(),
            std::back_inserter(keys),
            [](const std::string& key) { return _TDWUnpairedDeviceReadableKeys().contains(key); });
        return keys;
    }();
    return kKeys;
}

const std::set<std::string>& TDWIgnoreReadFailureInfoKeys()
{
    static const std::set<std::string> kKeys { std::string(kTDWDeviceInfoWiFiAddress),
        std::string(kTDWDeviceInfoHardwarePlatform), std::string(kTDWDeviceInfoProductName),
        std::string(kTDWDeviceInfoProductVersion), std::string(kTDWDeviceInfoBuildVersion),
        std::string(kTDWDeviceInfoReleaseType) };
    return kKeys;
}

int TDWDeviceInfoServerMain(int argumentCount, char** arguments)
{
    TDWServerInitialize();
    if (argumentCount <= 1)
        return tdw::endServer(TDWSerializeErrorResponse(
            TDWErrorCreateWithMessage("Device UDID must be provided.", 1)));
    DeviceInfo info;
    return info.end(gather(info, argumentCount, arguments));
}
