#pragma once

#include "Platform/Result.h"

#include <cstdint>
#include <string>

namespace tdw {

/// Codes in `kCocoaErrorDomain` of an executable and of a connection's other end that are refused.
inline constexpr std::int64_t kUntrustedExecutableError = 3588;
inline constexpr std::int64_t kUntrustedPeerError = 4102;

/// Decides whether an executable may be started on this user's behalf, which is when nobody but
/// root and this user can have put its contents there:
///
/// - with all links resolved it is inside `directory`,
/// - it is a regular file that we may execute,
/// - it and the directories from it up to `directory` belong to root or to the effective user, and
///   neither their groups nor others may write to them.
///
/// @return the path with all links resolved
///
/// Errors: `kUntrustedExecutableError`, naming the path, the rule that failed and what to do about
/// it; `kPosixErrorDomain` where the path or the directory cannot be opened.
Result<std::string> verifyExecutable(const std::string& path, const std::string& directory);

/// Decides whether the process at the other end of a connected local socket runs as the effective
/// user or as root.
///
/// Errors: `kUntrustedPeerError`, naming both user ids; `kPosixErrorDomain` where the descriptor is
/// no connected local socket.
Result<void> verifyPeer(int socket);

} // namespace tdw
