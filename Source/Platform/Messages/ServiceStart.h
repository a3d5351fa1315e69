#pragma once

#include "Platform/System/Bundle.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

namespace tdw {

/// A service of this user: its name, and what to start where none listens.
struct ServiceIdentity {
    /// The name of its socket, without the suffix.
    std::string name;

    /// The file name of its executable in the bundle. Called with `kServiceLaunchArgument`, it
    /// starts the service in the background and exits once that listens: with 0, or with another
    /// status and a reason on standard error.
    std::string executable;

    /// The name of its directory among the user's runtime directories.
    std::string directory;

    Bundle bundle = Bundle::mainBundle();
};

/// Where a service listens. Makes the directory where it is missing. Errors: as `runtimeDirectory`.
Result<std::filesystem::path> serviceSocketPath(const ServiceIdentity& service);

inline constexpr const char* kServiceLaunchArgument = "--launch";

/// What to do where no service listens.
enum class StartPolicy { Start, Fail };

/// How long a service may take until it can be reached.
inline constexpr std::chrono::seconds kServiceStartBound { 10 };

/// Asked every few milliseconds while something waits.
using IsCancelled = std::function<bool()>;

/// Connects to a service, and starts it first where that is needed: once, however many processes
/// ask at the same time. The other end is one of this user's own processes, or root's.
///
/// Blocks for `kServiceStartBound` at most, and ends at once when `isCancelled` says so.
/// Errors: `kPosixErrorDomain` (ENOENT or ECONNREFUSED: nothing listens; ECANCELED), what keeps the
/// executable from being trusted or started, `kUntrustedPeerError`.
Result<FileHandle> connectToService(
    const ServiceIdentity& service, StartPolicy choice, const IsCancelled& isCancelled);

/// Connects to a service that runs. Does not wait.
/// Errors: as above, and EAGAIN where too many wait to be accepted already.
Result<FileHandle> connectToRunningService(const ServiceIdentity& service);

/// Connects to a private listener. Does not wait, and never starts anything.
Result<FileHandle> connectToTrustedSocket(const std::string& path);

} // namespace tdw
