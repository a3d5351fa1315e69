#pragma once

#include "Platform/Values/Result.h"

#include <filesystem>

namespace tdw::simulator {

/// Where the simulator's data files are: `share/tidewell` beside the `bin` of this executable,
/// in an installed tree and in the build tree alike.
Result<std::filesystem::path> dataDirectory();

} // namespace tdw::simulator
