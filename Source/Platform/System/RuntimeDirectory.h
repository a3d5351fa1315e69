#pragma once

#include "Platform/Values/Result.h"

#include <filesystem>
#include <string_view>

namespace tdw {

/// The directory of a product's sockets, made where it is missing: `NAME` in the user's runtime
/// directory (XDG_RUNTIME_DIR), or `.cache/NAME/run` in the home directory where there is none of
/// this user's own. Never a shared directory, where others could come first.
///
/// @param name the product's, as a file name
/// Errors: `kPosixErrorDomain` and `kUntrustedPeerError`, naming the directory: it cannot be made,
/// it belongs to another user, or others may enter it.
Result<std::filesystem::path> runtimeDirectory(std::string_view name);

} // namespace tdw
