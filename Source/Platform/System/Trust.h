#pragma once

#include "Platform/System/Bundle.h"
#include "Platform/Values/Result.h"

#include <cstdint>
#include <string>

namespace tdw {

/// Codes in `kCocoaErrorDomain` of an executable and of a connection's other end that are refused.
inline constexpr std::int64_t kUntrustedExecutableError = 3588;
inline constexpr std::int64_t kUntrustedPeerError = 4102;

/// Decides whether an executable of `bundle` may be started on this user's behalf, which is when
/// only root and this user can have put its contents there:
///
/// - with all links resolved it is inside the bundle's directory,
/// - it is a regular file that we may execute,
/// - it, every directory above it up to the root, and the library that the bundle was found from
///   with every directory above that, belong to root or to the effective user, and others may not
///   write to them. A group may, where the owner is its only member. A sticky directory of root,
///   such as /tmp, may be writable by all, because what lies in it is checked as well.
///
/// @return the path with all links resolved but a last one that leads to a file beside it. Only
///         root and this user can make it mean another file afterwards, so that it is safe to start
///         the executable by this path, and by no other.
///
/// Errors: `kUntrustedExecutableError`, naming the path, the rule that failed and what to do about
/// it; `kPosixErrorDomain` where the path or the directory cannot be opened.
Result<std::string> verifyExecutable(const std::string& path, const Bundle& bundle);

/// Decides whether the process at the other end of a connected local socket runs as the effective
/// user or as root.
///
/// Errors: `kUntrustedPeerError`, naming both user ids; `kPosixErrorDomain` where the descriptor is
/// no connected local socket.
Result<void> verifyPeer(int socket);

} // namespace tdw
