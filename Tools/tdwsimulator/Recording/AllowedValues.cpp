#include "Recording/AllowedValues.h"

#include "Model/Scenario.h"

#include <algorithm>
#include <span>

namespace tdw::simulator {

namespace {

using Names = std::span<const std::string_view>;

constexpr std::string_view kModel[] = { "BoardId", "CPUArchitecture", "ChipID", "DeviceClass",
    "DeviceColor", "DeviceEnclosureColor", "HardwareModel", "HardwarePlatform", "HasSiDP",
    "ModelNumber", "ProductName", "ProductType", "ProductionSOC", "RegionInfo",
    "SupportedDeviceFamilies", "TelephonyCapability" };

constexpr std::string_view kSystem[] = { "BasebandVersion", "BuildVersion", "FirmwareVersion",
    "HumanReadableProductVersionString", "PartitionType", "ProductVersion", "ProductVersionExtra",
    "ProtocolVersion", "ReleaseType", "SoftwareBundleVersion" };

constexpr std::string_view kState[] = { "ActivationState", "ActivationStateAcknowledged",
    "BasebandStatus", "BrickState", "HostAttached", "PairRecordProtectionClass",
    "PasswordProtected", "SIMStatus", "SIMTrayStatus", "TrustedHostAttached", "UseRaptorCerts",
    "Uses24HourClock", "iTunesHasConnected" };

constexpr std::string_view kBattery[]
    = { "BatteryCurrentCapacity", "BatteryIsCharging", "ExternalChargeCapable", "ExternalConnected",
          "FullyCharged", "GasGaugeCapability", "HasBattery" };

constexpr std::string_view kWireless[]
    = { "EnableWifiConnections", "EnableWifiDebugging", "SupportsWifi", "SupportsWifiSyncing" };

constexpr std::string_view kClock[] = { "TimeIntervalSince1970" };

constexpr std::string_view kScreen[] = { "ScreenHeight", "ScreenScaleFactor", "ScreenWidth" };

constexpr std::string_view kDisk[] = { "TotalDiskCapacity" };

constexpr std::string_view kNamed[] = { "NonVolatileRAM" };

/// One group of the allow list, and why it may leave its owner.
struct Group {
    std::string_view domain;
    Names keys;
    Kept kept;
    std::string_view reason;
};

constexpr Group kGroups[] = {
    { kGlobalDomain, kModel, Kept::Content, "which model it is: the same for millions" },
    { kGlobalDomain, kSystem, Kept::Content, "which system it runs: the same for millions" },
    { kGlobalDomain, kState, Kept::Content, "one of a few states; none says whose device it is" },
    { kGlobalDomain, kClock, Kept::Content, "when it was recorded, as the file's own date says" },
    { kGlobalDomain, kNamed, Kept::Names, "the names of the system's own variables" },
    { kBatteryDomain, kBattery, Kept::Content, "how full a battery is at one moment" },
    { kWirelessDomain, kWireless, Kept::Content, "four switches, and no network" },
    { "com.apple.mobile.iTunes", kScreen, Kept::Content, "the screen of the model" },
    { "com.apple.disk_usage", kDisk, Kept::Content, "the size that was bought, not what is in it" },
    { "com.apple.disk_usage.factory", kDisk, Kept::Content, "the same" },
    { kWatchDomain, kModel, Kept::Content, "which model it is: the same for millions" },
    { kWatchDomain, kSystem, Kept::Content, "which system it runs: the same for millions" },
    { kWatchDomain, kBattery, Kept::Content, "how full a battery is at one moment" },
};

/// What lockdown, the companion proxy and springboard are known to refuse with.
constexpr std::string_view kErrors[] = { "ActivateMissingActivationRecord", "EscrowLocked",
    "FMiPProtected", "GetProhibited", "ImmutableValue", "InvalidActivationRecord", "InvalidHostID",
    "InvalidPairRecord", "InvalidRequest", "InvalidResponse", "InvalidService", "InvalidSessionID",
    "MCChallengeRequired", "MCProtected", "MissingActivationRecord", "MissingHostID", "MissingKey",
    "MissingPairRecord", "MissingService", "MissingSessionID", "MissingValue", "NoPairedWatches",
    "NoRunningSession", "NotFound", "PairingDialogResponsePending",
    "PairingProhibitedOverThisConnection", "PasswordProtected", "RemoveProhibited", "ServiceLimit",
    "ServiceProhibited", "SessionActive", "SessionInactive", "SetProhibited", "TimeoutReply",
    "UnknownCommand", "UnsupportedWatchKey", "UserDeniedPairing" };

bool contains(Names names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

Kept keptOf(std::string_view domain, std::string_view key)
{
    const auto* group = std::find_if(std::begin(kGroups), std::end(kGroups),
        [&](const Group& other) { return other.domain == domain && contains(other.keys, key); });
    return group == std::end(kGroups) ? Kept::Nothing : group->kept;
}

bool isKnownError(std::string_view name)
{
    return contains(kErrors, name);
}

} // namespace tdw::simulator
