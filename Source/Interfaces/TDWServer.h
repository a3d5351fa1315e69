#pragma once

#include "Platform/Export.h"

#include <string_view>

/// The name of a server: the file name of its executable, and what the server tool dispatches on.
using TDWServer = std::string_view;

extern "C" {

/// Lists the devices that can be reached now.
TDW_EXPORT extern const TDWServer kTidewellServerList;
/// Tells everything about one device.
TDW_EXPORT extern const TDWServer kTidewellServerInfo;
/// Writes one of the allow-listed settings of a device.
TDW_EXPORT extern const TDWServer kTidewellServerConfig;
/// Tells the state of a device's battery.
TDW_EXPORT extern const TDWServer kTidewellServerBattery;
/// Tells about the watches paired with a device.
TDW_EXPORT extern const TDWServer kTidewellServerCompanion;
/// Tells the batteries of the watches paired with a device.
TDW_EXPORT extern const TDWServer kTidewellServerCompanionBattery;
/// Gives a preview of a device's wallpaper.
TDW_EXPORT extern const TDWServer kTidewellServerWallpaper;
/// Pairs with a device, or removes the pairing.
TDW_EXPORT extern const TDWServer kTidewellServerPairing;
/// Streams attach, detach and pairing events.
TDW_EXPORT extern const TDWServer kTidewellServerEvents;
/// A name kept for tests; the server tool has nothing behind it.
TDW_EXPORT extern const TDWServer kTidewellServerTest;
}
