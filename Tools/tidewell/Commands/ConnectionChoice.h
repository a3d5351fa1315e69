#pragma once

#include "Commands/Commands.h"
#include "Devices/DeviceList.h"
#include "Platform/Result.h"

#include <string>

namespace tdw::cli {

/// The connection type of a server's arguments, as --connection chooses it.
/// Errors: `ExitStatus::NoDevice`, where the device cannot be reached that way
Result<std::string> connectionArgument(const Session& session, const ListedDevice& device);

} // namespace tdw::cli
