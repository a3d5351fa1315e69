#include "Interfaces/TDWServer.h"

#include <algorithm>
#include <iterator>

using namespace std::chrono_literals;

constexpr TDWServer kTidewellServerList = "tdw_list";
constexpr TDWServer kTidewellServerInfo = "tdw_info";
constexpr TDWServer kTidewellServerConfig = "tdw_config";
constexpr TDWServer kTidewellServerBattery = "tdw_battery";
constexpr TDWServer kTidewellServerCompanion = "tdw_companion";
constexpr TDWServer kTidewellServerCompanionBattery = "tdw_companion_battery";
constexpr TDWServer kTidewellServerWallpaper = "tdw_wallpaper";
constexpr TDWServer kTidewellServerPairing = "tdw_pairing";
constexpr TDWServer kTidewellServerEvents = "tdw_events";
constexpr TDWServer kTidewellServerTest = "tdw_test";

namespace {

constinit const TDWServerDescription kServers[] = {
    { .name = kTidewellServerList },
    { .name = kTidewellServerInfo },
    { .name = kTidewellServerConfig },
    { .name = kTidewellServerBattery },
    { .name = kTidewellServerCompanion },
    { .name = kTidewellServerCompanionBattery },
    { .name = kTidewellServerWallpaper },
    // The user has to find the device, unlock it and read a dialog.
    { .name = kTidewellServerPairing, .timeout = 20s },
    { .name = kTidewellServerEvents, .timeout = 0s, .kind = TDWServerKind::Stream },
    { .name = kTidewellServerTest, .kind = TDWServerKind::Reserved },
};

} // namespace

std::span<const TDWServerDescription> TDWServers()
{
    return kServers;
}

const TDWServerDescription* TDWServerNamed(std::string_view name)
{
    const auto* found = std::find_if(std::begin(kServers), std::end(kServers),
        [name](const TDWServerDescription& server) { return server.name == name; });
    return found == std::end(kServers) ? nullptr : found;
}
