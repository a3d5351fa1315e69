#include "Interfaces/TDWDeviceInfo.h"

const std::string_view kTDWDeviceIdentifierUDID = "udid";
const std::string_view kTDWDeviceIdentifierBluetoothAddress = "address";

const std::string_view kTDWDeviceInfoDeviceName = "DeviceName";
const std::string_view kTDWDeviceInfoDeviceClass = "DeviceClass";
const std::string_view kTDWDeviceInfoHardwareModel = "HardwareModel";
const std::string_view kTDWDeviceInfoProductType = "ProductType";
const std::string_view kTDWDeviceInfoDeviceColor = "DeviceColor";
const std::string_view kTDWDeviceInfoWiFiAddress = "WiFiAddress";
const std::string_view kTDWDeviceInfoBluetoothAddress = "BluetoothAddress";
const std::string_view kTDWDeviceInfoSerialNumber = "SerialNumber";
const std::string_view kTDWDeviceInfoHardwarePlatform = "HardwarePlatform";
const std::string_view kTDWDeviceInfoProductName = "ProductName";
const std::string_view kTDWDeviceInfoProductVersion = "ProductVersion";
const std::string_view kTDWDeviceInfoBuildVersion = "BuildVersion";
const std::string_view kTDWDeviceInfoReleaseType = "ReleaseType";

const std::string_view kTDWDeviceInfoBattery = "Battery";
const std::string_view kTDWDeviceInfoBatteryError = "BatteryError";
const std::string_view kTDWDeviceInfoWirelessBuddyID = "WirelessBuddyID";
const std::string_view kTDWDeviceInfoCompanionDeviceIdentifiers = "CompanionDeviceIdentifiers";
const std::string_view kTDWDeviceInfoEnableWiFiConnections = "EnableWifiConnections";
const std::string_view kTDWDeviceInfoPairingState = "PairingState";

const std::string_view kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag
    = "--include-companion-identifiers";
const std::string_view kTDWDeviceInfoServerNeverPairFlag = "--never-pair";
const std::string_view kTDWDeviceInfoServerPublicOnlyFlag = "--public-only";
const std::string_view kTDWDeviceInfoServerDiagnoseFlag = "--diagnose";

const std::string_view kTDWDeviceInfoDiagnosis = "Diagnosis";
const std::string_view kTDWDiagnosisLocked = "Locked";
const std::string_view kTDWDiagnosisManaged = "Managed";
const std::string_view kTDWDiagnosisServiceError = "ServiceError";

const std::string_view kTDWBatteryCurrentCapacity = "BatteryCurrentCapacity";
const std::string_view kTDWBatteryIsCharging = "BatteryIsCharging";
const std::string_view kTDWExternalChargeCapable = "ExternalChargeCapable";
const std::string_view kTDWExternalConnected = "ExternalConnected";
const std::string_view kTDWFullyCharged = "FullyCharged";
const std::string_view kTDWGasGaugeCapability = "GasGaugeCapability";
const std::string_view kTDWHasBattery = "HasBattery";

const std::string_view kTDWPairingServerActionPair = "pair";
const std::string_view kTDWPairingServerActionUnpair = "unpair";

const char kTDWLockdownDomainBattery[] = "com.apple.mobile.battery";
const char kTDWLockdownDomainWireless[] = "com.apple.mobile.wireless_lockdown";
