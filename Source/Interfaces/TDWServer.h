#pragma once

#include "Platform/Export.h"

#include <chrono>
#include <span>
#include <string_view>

/// The name of a server: the file name of its executable, and what the server tool dispatches on.
using TDWServer = std::string_view;

enum class TDWServerKind {
    /// One request, one envelope on standard output, and the end.
    Request,
    /// Lines on standard output until it is told to end.
    Stream,
    /// A name without a server behind it.
    Reserved,
};

/// What callers need to know of a server.
struct TDWServerDescription {
    TDWServer name;
    /// How long the server may take, and so how long its caller waits. Zero: as long as it lives.
    std::chrono::seconds timeout { 10 };
    TDWServerKind kind = TDWServerKind::Request;
};

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

/// Every server name there is, each once.
TDW_EXPORT std::span<const TDWServerDescription> TDWServers();

/// The server of that name, or null. The description lives as long as the process.
TDW_EXPORT const TDWServerDescription* TDWServerNamed(std::string_view name);
}
