#pragma once

#include "Platform/Bundle.h"
#include "Platform/Export.h"
#include "Platform/FileHandle.h"
#include "Platform/Result.h"

#include <chrono>
#include <functional>
#include <string>

namespace tdw {

/// A service of this user: what it is called, and what to start where nobody answers to the name.
struct ServiceIdentity {
    /// The name of its socket, without the suffix.
    std::string name;

    /// The file name of its executable in the bundle. Called with `kServiceLaunchArgument`, it
    /// starts the service in the background and exits once that listens: with 0, or with another
    /// status and a reason on standard error.
    std::string executable;

    Bundle bundle = Bundle::mainBundle();
};

inline constexpr const char* kServiceLaunchArgument = "--launch";

/// What to do where nobody listens.
enum class IfNobodyListens { Start, Fail };

/// How long a service may take until it can be reached.
inline constexpr std::chrono::seconds kServiceStartBound { 10 };

/// Connects to a service, and starts it first where that is needed: once, however many processes
/// ask at the same time. The other end is one of this user's own processes, or root's.
///
/// Blocks for `kServiceStartBound` at most, less when `isCancelled` (asked now and then) says so.
/// Errors: `kPosixErrorDomain` (ENOENT or ECONNREFUSED: nobody listens), what keeps the executable
/// from being trusted or started, `kUntrustedPeerError`.
TDW_EXPORT Result<FileHandle> connectToService(const ServiceIdentity& service,
    IfNobodyListens choice, const std::function<bool()>& isCancelled);

/// Connects to a private listener; never starts anything.
Result<FileHandle> connectToTrustedSocket(const std::string& path);

} // namespace tdw
