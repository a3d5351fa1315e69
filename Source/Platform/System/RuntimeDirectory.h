#pragma once

#include "Platform/Values/Result.h"

#include <filesystem>
#include <string_view>

namespace tdw {

/// The directory of the framework's sockets, made where it is missing: `tidewell` in the user's
/// runtime directory (XDG_RUNTIME_DIR), or `.cache/tidewell/run` in the home directory where there
/// is none of this user's own. Never a shared directory, where others could come first.
///
/// Errors: `kPosixErrorDomain` and `kUntrustedPeerError`, naming the directory: it cannot be made,
/// it is somebody else's, or others may enter it.
Result<std::filesystem::path> runtimeDirectory();

/// Where the service of a name listens, below `runtimeDirectory`.
Result<std::filesystem::path> serviceSocketPath(std::string_view serviceName);

} // namespace tdw
