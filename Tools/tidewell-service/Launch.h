#pragma once

#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <filesystem>

namespace tdw::service {

/// Starts the service in the background, and waits until it can be reached.
/// Errors: it does not come up in time, or ends before that; its own words are on standard error.
Result<void> launchInBackground();

/// The started service's side of that: it leaves the session and the directory of its
/// starter, says on standard output that it can be reached, and lets go of the standard streams.
void becomeBackgroundProcess();

/// The right to listen at a path; it ends with the handle, or with the process.
///
/// Waits for a service that is just coming or going.
/// Errors: EEXIST, naming the path; another service listens there.
Result<FileHandle> lockForListening(const std::filesystem::path& path);

} // namespace tdw::service
