#include "Server/TDWDeviceInfoServer.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/System/Trace.h"
#include "Server/PropertyListNode.h"
#include "Server/ServerMain.h"
#include "Server/TDWServerImplementation.h"
#include "Server/TDWServerLockdown.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"
#include "Support/TraceSteps.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

using tdw::Dictionary;
using tdw::Error;
using tdw::Result;
using tdw::ServerReply;
using tdw::Value;

namespace {

/// Gathers the payload for one device, step by step. What cannot be read becomes a warning.
class DeviceInfo {
public:
    explicit DeviceInfo(tdw::DeviceSession& session)
        : m_session(session)
    {
    }

    Result<void> open(const char* udid, enum idevice_options options)
    {
        auto opened = m_session.open(udid, options);
        const bool networkOnly = (options & IDEVICE_LOOKUP_USBMUX) == 0;
        if (opened || !networkOnly || !tdw::isDeviceNotFound(opened.error()))
            return opened;
        tdw::setErrorDetail("Lookup over network failed, fallback to USB attempted.");
        warn(TDWErrorCreate("idevice_new_with_options", IDEVICE_E_NO_DEVICE));
        return m_session.open(
            udid, static_cast<enum idevice_options>(options | IDEVICE_LOOKUP_USBMUX));
    }

    /// @param mayPair whether a device that this host has no record of may be paired with, which
    ///        makes it ask its user
    Result<void> connect(bool mayPair)
    {
        auto trusted = mayPair || m_session.hasPairRecord()
            ? m_session.connect(tdw::Handshake::Yes)
            : TDWErrorCreate("lockdownd_client_new", LOCKDOWN_E_MISSING_PAIR_RECORD);
        if (trusted) {
            m_state = TDWDevicePairingStatePaired;
            return {};
        }
        if (!tdw::isUnpairedDevice(trusted.error()))
            return trusted;
        warn(trusted.error());
        m_state
            = TDWDevicePairingStateFromLockdownErrorCode(static_cast<int>(trusted.error().code()));
        return m_session.connect(tdw::Handshake::No);
    }

    /// What the device tells every host.
    Result<void> readPublicValues()
    {
        TDW_TRY(m_session.connect(tdw::Handshake::No));
        readIdentity();
        return {};
    }

    /// One question without trust, so that a trace tells a silent device from a silent handshake.
    Result<void> query()
    {
        TDW_TRY(m_session.connect(tdw::Handshake::No));
        TDW_TRY(m_session.query());
        m_session.disconnect();
        return {};
    }

    void readIdentity()
    {
        const tdw::TraceStep step("values of", m_session.udid());
        for (const std::string& key :
            isPaired() ? TDWDeviceInfoKeys() : TDWUnpairedDeviceInfoKeys())
            readString(key);
    }

    void readBattery()
    {
        const tdw::TraceStep step("battery of", m_session.udid());
        const auto battery
            = tdw::readLockdownDomain(m_session.lockdown(), kTDWLockdownDomainBattery);
        if (battery)
            m_payload.set(kTDWDeviceInfoBattery, *battery);
        else
            m_payload.set(
                kTDWDeviceInfoBatteryError, TDWCreateErrorResponseDictionary(battery.error()));
    }

    void readWireless()
    {
        const tdw::TraceStep step("wireless settings of", m_session.udid());
        const auto wireless
            = tdw::readLockdownDomain(m_session.lockdown(), kTDWLockdownDomainWireless);
        if (!wireless)
            warn(wireless.error());
        readWifiConnections(
            wireless ? wireless->find(kTDWDeviceInfoEnableWiFiConnections) : nullptr);
        if (const auto* buddy
            = wireless ? wireless->stringAt(kTDWDeviceInfoWirelessBuddyID) : nullptr)
            m_payload.set(kTDWDeviceInfoWirelessBuddyID, *buddy);
        else
            warn(tdw::missingWirelessValueError(kTDWDeviceInfoWirelessBuddyID));
    }

    void readCompanionIdentifiers()
    {
        const auto identifiers = fetchCompanionIdentifiers();
        if (!identifiers)
            warn(TDWErrorCreate(
                tdw::kCompanionLookupApi, static_cast<int>(identifiers.error().code())));
        m_payload.set(kTDWDeviceInfoCompanionDeviceIdentifiers,
            identifiers ? *identifiers : Value(tdw::Array()));
    }

    void diagnose()
    {
        Dictionary diagnosis;
        addBoolean(diagnosis, kTDWDiagnosisLocked, nullptr, "PasswordProtected");
        addBoolean(
            diagnosis, kTDWDiagnosisManaged, "com.apple.mobile.chaperone", "DeviceIsChaperoned");
        // A service that every device has, and that is not used here: whether it starts says
        // whether the others would.
        tdw::ServiceDescriptorHandle service;
        tdw::TraceStep step(tdw::kServiceStep, m_session.udid());
        if (const int code = step.ended(lockdownd_start_service(
                m_session.lockdown(), "com.apple.mobile.notification_proxy", out(service))))
            diagnosis.set(kTDWDiagnosisServiceError,
                TDWCreateErrorResponseDictionary(TDWErrorCreate("lockdownd_start_service", code)));
        m_payload.set(kTDWDeviceInfoDiagnosis, std::move(diagnosis));
    }

    ServerReply publicReply() { return { std::move(m_payload), m_session.identity() }; }

    ServerReply reply()
    {
        m_payload.set(kTDWDeviceInfoEnableWiFiConnections, m_enablesWifi);
        m_payload.set(kTDWDeviceInfoPairingState, static_cast<std::uint32_t>(m_state));
        return { std::move(m_payload), m_session.identity() };
    }

    bool isPaired() const { return m_state == TDWDevicePairingStatePaired; }

private:
    void warn(const Error& error) { TDWAppendErrorToWarningsArray(&m_payload, &error); }

    Result<Value> fetchCompanionIdentifiers()
    {
        const auto proxy = TDW_TRY(m_session.startCompanionProxy());
        return tdw::readCompanionRegistry(proxy);
    }

    /// Nothing where the device has no such value.
    void addBoolean(
        Dictionary& diagnosis, std::string_view name, const char* domain, const char* key)
    {
        tdw::PropertyListNode node;
        if (lockdownd_get_value(m_session.lockdown(), domain, key, out(node)) != LOCKDOWN_E_SUCCESS)
            return;
        const auto value = tdw::readNode(node.get());
        if (value && value->asBoolean())
            diagnosis.set(name, *value->asBoolean());
    }

    void readString(const std::string& key)
    {
        std::optional<std::string> text;
        const int code = TDWReadLockdownString(m_session.lockdown(), nullptr, key.c_str(), text);
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
            warn(tdw::missingWirelessValueError(kTDWDeviceInfoEnableWiFiConnections));
    }

    tdw::DeviceSession& m_session;
    TDWDevicePairingState m_state = TDWDevicePairingStateNotPaired;
    bool m_enablesWifi = false;
    Dictionary m_payload;
};

bool isGiven(std::string_view flag, int argumentCount, char** arguments)
{
    return std::any_of(arguments, arguments + argumentCount,
        [flag](const char* argument) { return argument == flag; });
}

Result<ServerReply> gather(tdw::DeviceSession& session, int argumentCount, char** arguments)
{
    const char* udid = TDW_TRY(tdw::requiredUdid(argumentCount, arguments));
    DeviceInfo info(session);
    TDW_TRY(info.open(udid, TDWParseDeviceOptionsFromArguments(argumentCount, arguments)));
    if (isGiven(kTDWDeviceInfoServerPublicOnlyFlag, argumentCount, arguments)) {
        TDW_TRY(info.readPublicValues());
        return info.publicReply();
    }
    const bool diagnoses = isGiven(kTDWDeviceInfoServerDiagnoseFlag, argumentCount, arguments);
    if (diagnoses)
        TDW_TRY(info.query());
    TDW_TRY(info.connect(!isGiven(kTDWDeviceInfoServerNeverPairFlag, argumentCount, arguments)));
    info.readIdentity();
    if (info.isPaired()) {
        info.readBattery();
        info.readWireless();
        if (diagnoses)
            info.diagnose();
        if (isGiven(kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag, argumentCount, arguments))
            info.readCompanionIdentifiers();
    }
    return info.reply();
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
    return tdw::answerRequest(
        [&](tdw::DeviceSession& session) { return gather(session, argumentCount, arguments); });
}
