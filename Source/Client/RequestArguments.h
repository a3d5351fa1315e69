#pragma once

#include "Interfaces/TDWServer.h"
#include "Platform/Export.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace tdw {

// What can be asked: one struct for each request, with what the request needs. A connection type is
// 1 for USB only, 2 for the network only, anything else for both.

/// The devices that can be reached now.
struct DeviceListQuery { };

/// Everything about one device.
struct DeviceInfoQuery {
    std::string udid;
    std::uint64_t connectionType = 0;
    bool includesCompanionIdentifiers = false;
    /// False: a device that this host has no pair record of is not asked to pair, and answers as
    /// far as a device without trust may. True: it shows its trust dialog.
    bool mayPair = true;
    /// Looks into what may be wrong, as `kTDWDeviceInfoServerDiagnoseFlag` says.
    bool diagnoses = false;
    /// Reads only what the device tells every host, as `kTDWDeviceInfoServerPublicOnlyFlag` says.
    bool publicOnly = false;
};

/// The state of a device's battery.
struct BatteryQuery {
    std::string udid;
    std::uint64_t connectionType = 0;
};

/// The watches of a phone, by the identifiers that the device information gives.
struct CompanionsQuery {
    std::string udid;
    std::uint64_t connectionType = 0;
    std::vector<std::string> companionIdentifiers;
};

/// The battery levels of a phone's watches.
struct CompanionBatteriesQuery {
    std::string udid;
    std::uint64_t connectionType = 0;
    std::vector<std::string> companionIdentifiers;
};

/// Writes one of the settings that the configuration server allows.
struct SettingQuery {
    std::string udid;
    std::string domain;
    std::string key;
    std::string value;
};

/// Pairs with a device, or removes the pairing.
struct PairingQuery {
    enum class Action { Pair, Unpair };
    Action action = Action::Pair;
    std::string udid;
};

/// A preview of a wallpaper.
struct WallpaperQuery {
    std::string udid;
    std::uint64_t connectionType = 0;
    /// 0 the lock screen, 1 the home screen
    std::uint64_t wallpaperName = 0;
    /// 0: the device chooses
    double widthPixels = 0;
};

using DeviceQuery = std::variant<DeviceListQuery, DeviceInfoQuery, BatteryQuery, CompanionsQuery,
    CompanionBatteriesQuery, SettingQuery, PairingQuery, WallpaperQuery>;

/// The server that answers a query.
TDW_EXPORT TDWServer serverFor(const DeviceQuery& query);

/// The arguments with which it is run. No argument is checked; the server does that.
TDW_EXPORT std::vector<std::string> argumentsFor(const DeviceQuery& query);

/// Whether a query only reads, so that asking again does nothing twice.
TDW_EXPORT bool isSafeToRepeat(const DeviceQuery& query);

} // namespace tdw
