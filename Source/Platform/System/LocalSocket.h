#pragma once

#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <filesystem>

namespace tdw {

/// A local stream socket that listens on `path`, for this user only. A socket without a
/// listener is replaced. Errors name the path: it is too long, or in use.
Result<FileHandle> listenOnLocalSocket(const std::filesystem::path& path);

/// A connected one, in blocking mode. Does not wait.
/// Errors name the path (ENOENT, ECONNREFUSED: no listener; EAGAIN: too many wait there
/// already).
Result<FileHandle> connectToLocalSocket(const std::filesystem::path& path);

} // namespace tdw
