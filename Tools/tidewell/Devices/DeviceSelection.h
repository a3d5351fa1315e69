#pragma once

#include "Devices/DeviceList.h"
#include "Platform/Values/Result.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

// Which of the listed devices a user means. Nothing here sends a request.

/// A UDID in the one form in which UDIDs are compared: without hyphens, in small letters.
std::string comparableUdid(std::string_view udid);

/// A device with its name.
struct NamedDevice {
    ListedDevice device;
    std::string name;
};

/// Refuses what can be neither a UDID nor a name, before it goes anywhere.
/// Errors: `ExitStatus::Usage`
Result<void> validateDeviceText(std::string_view text);

/// Whether `text` is as long as a whole UDID and made like one, so that it can be no name.
bool isWholeUdid(std::string_view text);

/// The device whose UDID is `text` or begins with it, whatever the case of the letters and wherever
/// the hyphens; a whole UDID wins over a longer one that begins with it.
/// @return none where no UDID fits. Errors: `ExitStatus::NoDevice`, where more than one fits
Result<std::optional<ListedDevice>> selectByUdid(
    std::string_view text, const std::vector<ListedDevice>& devices);

/// Whether `text` means the device called `name`. A straight apostrophe stands for a typographic
/// one too, which devices put into their names and keyboards lack; ASCII letters match in either
/// case.
bool isName(std::string_view text, std::string_view name);

/// The device that is called `text`.
/// @return and errors as above
Result<std::optional<ListedDevice>> selectByName(
    std::string_view text, const std::vector<NamedDevice>& devices);

} // namespace tdw::cli
