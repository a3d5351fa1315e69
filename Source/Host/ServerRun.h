#pragma once

#include "Host/ServerProcess.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <chrono>
#include <optional>

namespace tdw {

/// One run of a server executable.
struct ServerRunOptions : ServerLaunch {
    /// Kills the server, with all its descendants, once this much time has passed; none: never.
    std::optional<std::chrono::milliseconds> timeout;

    /// Where the server's standard error goes as well, while it has room; it is closed at the end
    /// of the run. Not open: nowhere. It must not be a pipe that nobody holds the other end of.
    FileHandle standardErrorCopy;
};

struct ServerRunOutcome {
    /// Everything that the server wrote to standard output.
    Data output;

    /// What it wrote to standard error, up to `kStandardErrorLimit` bytes.
    Data standardError;

    Termination termination;
    bool timedOut = false;
};

/// The most of a server's standard error that is kept; the rest is read and dropped.
inline constexpr std::size_t kStandardErrorLimit = std::size_t { 1 } << 20;

/// Starts a server and reads both its streams until it has ended, so that it can never block on a
/// full pipe. Its end is the end of the run: descendants that it leaves behind are killed with its
/// process group, and a pipe that one of them took along holds nobody up.
///
/// Blocks the calling thread, and no other; may run on several threads at once.
/// Errors: those of launching.
Result<ServerRunOutcome> runServer(ServerRunOptions options);

} // namespace tdw
