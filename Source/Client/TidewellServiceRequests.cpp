#include "Client/TidewellServiceClient.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServer.h"

#include <array>
#include <charconv>
#include <utility>

// Each request is one run of a server: its name, its arguments, and the time that it gives itself.

namespace {

using Arguments = std::vector<std::string>;

constexpr double kDefaultTimeout = 10.0;
constexpr double kPairingTimeout = 20.0;

Arguments companionArguments(const std::string& udid, std::uint64_t connectionType,
    const std::vector<std::string>& identifiers)
{
    Arguments arguments { udid, std::to_string(connectionType) };
    arguments.insert(arguments.end(), identifiers.begin(), identifiers.end());
    return arguments;
}

/// Two decimals and a point, whatever the application's locale.
std::string pixelText(double pixels)
{
    // The longest number has 309 digits before its point.
    std::array<char, 320> text {};
    const auto end = std::to_chars(
        text.data(), text.data() + text.size(), pixels, std::chars_format::fixed, 2);
    return { text.data(), end.ptr };
}

} // namespace

void TidewellServiceClient::_invokeServer(std::string_view server,
    std::vector<std::string> arguments, double timeout, CompletionHandler handler)
{
    _performWithServiceObject(
        [weak = weak_from_this(), server = std::string(server), arguments = std::move(arguments),
            timeout, handler = std::move(handler)](
            TidewellServiceProtocol* service, const std::optional<tdw::Error>& error) {
            const auto self = weak.lock();
            if (!self)
                return;
            const auto finish = [self, handler](const tdw::Value& envelope) {
                self->m_callbackQueue.async([handler, envelope] { handler(envelope); });
            };
            if (service)
                service->invokeServer(server, arguments, timeout, finish);
            else
                finish(TDWClientErrorResponse(*error));
        });
}

void TidewellServiceClient::deviceListWithCompletionHandler(CompletionHandler handler)
{
    _invokeServer(kTidewellServerList, {}, kDefaultTimeout, std::move(handler));
}

void TidewellServiceClient::deviceInfoWithUDID(const std::string& udid,
    bool includeCompanionIdentifiers, std::uint64_t connectionType, CompletionHandler handler)
{
    Arguments arguments { udid, std::to_string(connectionType) };
    if (includeCompanionIdentifiers)
        arguments.emplace_back(kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag);
    _invokeServer(kTidewellServerInfo, std::move(arguments), kDefaultTimeout, std::move(handler));
}

void TidewellServiceClient::deviceBatteryWithUDID(
    const std::string& udid, std::uint64_t connectionType, CompletionHandler handler)
{
    _invokeServer(kTidewellServerBattery, { udid, std::to_string(connectionType) }, kDefaultTimeout,
        std::move(handler));
}

void TidewellServiceClient::companionDevicesForDeviceWithUDID(const std::string& udid,
    std::uint64_t connectionType, const std::vector<std::string>& companionDeviceIdentifiers,
    CompletionHandler handler)
{
    _invokeServer(kTidewellServerCompanion,
        companionArguments(udid, connectionType, companionDeviceIdentifiers), kDefaultTimeout,
        std::move(handler));
}

void TidewellServiceClient::companionBatteriesForDeviceWithUDID(const std::string& udid,
    std::uint64_t connectionType, const std::vector<std::string>& companionDeviceIdentifiers,
    CompletionHandler handler)
{
    _invokeServer(kTidewellServerCompanionBattery,
        companionArguments(udid, connectionType, companionDeviceIdentifiers), kDefaultTimeout,
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
    _invokeServer(
        kTidewellServerConfig, { udid, domain, key, value }, kDefaultTimeout, std::move(handler));
}

void TidewellServiceClient::pairDeviceWithUDID(const std::string& udid, CompletionHandler handler)
{
    _invokeServer(kTidewellServerPairing, { std::string(kTDWPairingServerActionPair), udid },
        kPairingTimeout, std::move(handler));
}

void TidewellServiceClient::unpairDeviceWithUDID(const std::string& udid, CompletionHandler handler)
{
    _invokeServer(kTidewellServerPairing, { std::string(kTDWPairingServerActionUnpair), udid },
        kPairingTimeout, std::move(handler));
}

void TidewellServiceClient::getWallpaperPreviewImageForDeviceWithUDID(const std::string& udid,
    std::uint64_t connectionType, std::uint64_t wallpaperName, double widthPixels,
    CompletionHandler handler)
{
    _invokeServer(kTidewellServerWallpaper,
        { udid, std::to_string(connectionType), std::to_string(wallpaperName),
            pixelText(widthPixels) },
        kDefaultTimeout, std::move(handler));
}
