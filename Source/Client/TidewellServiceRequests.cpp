#include "Client/RequestArguments.h"
#include "Client/TidewellServiceClient.h"
#include "Interfaces/TDWDeviceInfo.h"

#include <utility>

// The named requests: each one is a query.

void TidewellServiceClient::deviceListWithCompletionHandler(CompletionHandler handler)
{
    send(tdw::DeviceListQuery(), std::move(handler));
}

void TidewellServiceClient::deviceInfoWithUDID(const std::string& udid,
    bool includeCompanionIdentifiers, std::uint64_t connectionType, CompletionHandler handler)
{
    send(tdw::DeviceInfoQuery { udid, connectionType, includeCompanionIdentifiers },
        std::move(handler));
}

void TidewellServiceClient::deviceBatteryWithUDID(
    const std::string& udid, std::uint64_t connectionType, CompletionHandler handler)
{
    send(tdw::BatteryQuery { udid, connectionType }, std::move(handler));
}

void TidewellServiceClient::companionDevicesForDeviceWithUDID(const std::string& udid,
    std::uint64_t connectionType, const std::vector<std::string>& companionDeviceIdentifiers,
    CompletionHandler handler)
{
    send(tdw::CompanionsQuery { udid, connectionType, companionDeviceIdentifiers },
        std::move(handler));
}

void TidewellServiceClient::companionBatteriesForDeviceWithUDID(const std::string& udid,
    std::uint64_t connectionType, const std::vector<std::string>& companionDeviceIdentifiers,
    CompletionHandler handler)
{
    send(tdw::CompanionBatteriesQuery { udid, connectionType, companionDeviceIdentifiers },
        std::move(handler));
}

void TidewellServiceClient::setWirelessEnabled(
    bool isEnabled, const std::string& udid, CompletionHandler handler)
{
    deviceSetDomainKeyBoolValue(udid, kTDWLockdownDomainWireless,
        std::string(kTDWDeviceInfoEnableWiFiConnections), isEnabled, std::move(handler));
}

void TidewellServiceClient::setWirelessBuddyID(
    const std::string& buddyID, const std::string& udid, CompletionHandler handler)
{
    deviceSetDomainKeyValue(udid, kTDWLockdownDomainWireless,
        std::string(kTDWDeviceInfoWirelessBuddyID), buddyID, std::move(handler));
}

void TidewellServiceClient::deviceSetDomainKeyBoolValue(const std::string& udid,
    const std::string& domain, const std::string& key, bool value, CompletionHandler handler)
{
    deviceSetDomainKeyValue(udid, domain, key, value ? "1" : "0", std::move(handler));
}

void TidewellServiceClient::deviceSetDomainKeyValue(const std::string& udid,
    const std::string& domain, const std::string& key, const std::string& value,
    CompletionHandler handler)
{
    send(tdw::SettingQuery { udid, domain, key, value }, std::move(handler));
}

void TidewellServiceClient::pairDeviceWithUDID(const std::string& udid, CompletionHandler handler)
{
    send(tdw::PairingQuery { tdw::PairingQuery::Action::Pair, udid }, std::move(handler));
}

void TidewellServiceClient::unpairDeviceWithUDID(const std::string& udid, CompletionHandler handler)
{
    send(tdw::PairingQuery { tdw::PairingQuery::Action::Unpair, udid }, std::move(handler));
}

void TidewellServiceClient::getWallpaperPreviewImageForDeviceWithUDID(const std::string& udid,
    std::uint64_t connectionType, std::uint64_t wallpaperName, double widthPixels,
    CompletionHandler handler)
{
    send(tdw::WallpaperQuery { udid, connectionType, wallpaperName, widthPixels },
        std::move(handler));
}
