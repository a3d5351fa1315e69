#pragma once

#include "Platform/Export.h"

#include <cstdint>
#include <string_view>

/// How far a device trusts this host.
enum TDWDevicePairingState : std::uint32_t {
    /// Not paired, or nothing more is known.
    TDWDevicePairingStateNotPaired = 0,
    /// The device shows its trust dialog and waits for its user.
    TDWDevicePairingStatePending = 1,
    /// The user refused.
    TDWDevicePairingStateDenied = 2,
    /// The device is locked or protected and cannot pair now.
    TDWDevicePairingStateLocked = 3,
    /// A trusted connection was made.
    TDWDevicePairingStatePaired = 4,
    /// The pairing was just removed.
    TDWDevicePairingStateUnpaired = 5,
};

extern "C" {

/// In a device identity record: the device's UDID, a string.
TDW_EXPORT extern const std::string_view kTDWDeviceIdentifierUDID;
/// In a device identity record: the Bluetooth address, a string; empty where it cannot be read.
TDW_EXPORT extern const std::string_view kTDWDeviceIdentifierBluetoothAddress;

/// In the payload of the device info: strings as the device has them.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoDeviceName;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoDeviceClass;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoHardwareModel;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoProductType;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoDeviceColor;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoWiFiAddress;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoBluetoothAddress;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoSerialNumber;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoHardwarePlatform;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoProductName;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoProductVersion;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoBuildVersion;
TDW_EXPORT extern const std::string_view kTDWDeviceInfoReleaseType;

/// A dictionary with the battery's values, of a paired device.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoBattery;
/// The error dictionary of a battery that could not be read.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoBatteryError;
/// A string: the host that the device synchronises with wirelessly.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoWirelessBuddyID;
/// An array of the paired watches' identifiers, where it was asked for.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoCompanionDeviceIdentifiers;
/// A boolean: whether the device accepts connections over Wi-Fi.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoEnableWiFiConnections;
/// An unsigned integer: a `TDWDevicePairingState`.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoPairingState;

/// The argument that asks the device info server for the companions' identifiers.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag;

/// The argument that keeps the device info server from pairing. Without it, a device that this host
/// has no pair record of shows its trust dialog. With it, such a device is told of as far as a
/// device without trust may be: state "not paired", and a warning with the code -29.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoServerNeverPairFlag;

/// The argument that makes the device info server read only what a device tells every host, its
/// name among it. There is no handshake, which is what a request costs most; the payload has no
/// pairing state. Over the network a device tells nothing that way.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoServerPublicOnlyFlag;

/// The argument that makes the device info server look into what may be wrong: it asks the device
/// one question before it relies on its trust, and afterwards for what stands below. The payload
/// gets the key `kTDWDeviceInfoDiagnosis` where the device trusts this host.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoServerDiagnoseFlag;

/// A dictionary with what a diagnosis has found; each of its keys may be missing.
TDW_EXPORT extern const std::string_view kTDWDeviceInfoDiagnosis;
/// In it, a boolean: the device is locked now.
TDW_EXPORT extern const std::string_view kTDWDiagnosisLocked;
/// In it, a boolean: an organisation manages the device.
TDW_EXPORT extern const std::string_view kTDWDiagnosisManaged;
/// In it, the error dictionary of a service that the device did not start.
TDW_EXPORT extern const std::string_view kTDWDiagnosisServiceError;

/// The battery's values: an integer from 0 to 100, and booleans. A device may lack any of them.
TDW_EXPORT extern const std::string_view kTDWBatteryCurrentCapacity;
TDW_EXPORT extern const std::string_view kTDWBatteryIsCharging;
TDW_EXPORT extern const std::string_view kTDWExternalChargeCapable;
TDW_EXPORT extern const std::string_view kTDWExternalConnected;
TDW_EXPORT extern const std::string_view kTDWFullyCharged;
TDW_EXPORT extern const std::string_view kTDWGasGaugeCapability;
TDW_EXPORT extern const std::string_view kTDWHasBattery;

/// The actions of the pairing server.
TDW_EXPORT extern const std::string_view kTDWPairingServerActionPair;
TDW_EXPORT extern const std::string_view kTDWPairingServerActionUnpair;

/// The lockdown domains that hold the battery's and the wireless values; NUL-terminated.
TDW_EXPORT extern const char kTDWLockdownDomainBattery[];
TDW_EXPORT extern const char kTDWLockdownDomainWireless[];
}
