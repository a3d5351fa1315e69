#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tdw::cli {

/// Where the system describes its devices: SYSFS_PATH, or else /sys.
std::filesystem::path sysfsRoot();

/// The iPhones, iPads and iPods on this computer's USB bus, by their UDIDs; an empty one where the
/// device does not tell. Keyboards and the like are not among them.
std::vector<std::string> devicesOnUsbBus(const std::filesystem::path& sysfs = sysfsRoot());

/// Whether that bus is the one whose devices the multiplexer should list: not where the environment
/// names another multiplexer, unless it names a bus as well.
bool isOwnUsbBus(bool isMultiplexerFromEnvironment);

} // namespace tdw::cli
