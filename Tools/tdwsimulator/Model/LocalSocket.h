#pragma once

#include "Platform/FileHandle.h"
#include "Platform/Result.h"

#include <filesystem>

namespace tdw::simulator {

/// A local stream socket that listens on `path`, for this user only. A socket that nobody listens
/// on any more is replaced. Errors name the path: it is too long, or in use.
Result<FileHandle> listenOnLocalSocket(const std::filesystem::path& path);

/// A connected one. Errors name the path.
Result<FileHandle> connectToLocalSocket(const std::filesystem::path& path);

} // namespace tdw::simulator
