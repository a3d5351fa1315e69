#pragma once

#include "Platform/Values/Result.h"

#include <string>
#include <vector>

namespace tdw::cli {

/// The device libraries that this computer's loader finds, which are those of the servers.
struct DeviceLibraries {
    /// The Debian release whose libraries these are, or are like: 12, 13, or 14 for later ones.
    int generation = 12;
    /// "libimobiledevice 1.3.0, libusbmuxd 2.0"
    std::string text;
    /// What is known to be wrong with them, and what Tidewell does about it.
    std::vector<std::string> knownFaults;
};

/// Loads them into this process, and calls nothing in them but what tells their release.
/// Errors: `kPosixErrorDomain` (ENOENT), with the loader's own words
Result<DeviceLibraries> loadedDeviceLibraries();

} // namespace tdw::cli
