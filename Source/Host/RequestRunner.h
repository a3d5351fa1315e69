#pragma once

#include "Host/ChildServer.h"
#include "Host/PipeCopy.h"
#include "Platform/Queues/EventLoop.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Result.h"

#include <chrono>
#include <functional>
#include <list>
#include <optional>

namespace tdw {

/// One run of a server executable.
struct ServerRunOptions : ServerLaunch {
    /// Kills the server, with all its descendants, once this much time has passed; none: never.
    std::optional<std::chrono::milliseconds> timeout;

    /// Where the server's standard error goes as well. Not open: nowhere.
    FileHandle standardErrorCopy;
};

struct ServerRunOutcome {
    /// Everything that the server wrote to standard output.
    Data output;

    /// What it wrote to standard error, up to `kStandardErrorLimit` bytes.
    Data standardError;

    /// The copy of that, with what its reader has not taken yet.
    PipeCopy standardErrorCopy;

    Termination termination;
    bool timedOut = false;
};

/// The most of a server's standard error that is kept; the rest is read and dropped.
inline constexpr std::size_t kStandardErrorLimit = std::size_t { 1 } << 20;

/// Runs servers side by side on an event loop, and reads both streams of each until it has ended,
/// so that none can block on a full pipe. A server's end is the end of its run: descendants that it
/// leaves behind are killed with its process group, and a pipe that one of them took along holds
/// nothing up.
///
/// Belongs to the loop's thread. Its end is the end of the servers that still run: they are killed,
/// and their completions say so.
class RequestRunner {
public:
    /// Runs once for each server. Errors: those of launching.
    using Completion = std::function<void(Result<ServerRunOutcome>)>;

    /// @param loop outlives the runner
    explicit RequestRunner(EventLoop& loop);
    RequestRunner(const RequestRunner&) = delete;
    RequestRunner& operator=(const RequestRunner&) = delete;
    ~RequestRunner();

    /// @param completion runs at once where the server cannot be started
    void start(ServerRunOptions options, Completion completion);

private:
    class Run;
    using Runs = std::list<Run>;

    EventLoop& m_loop;
    Runs m_runs;
};

/// Runs one server to its end, on a loop of its own. Blocks the calling thread, and no other; may
/// run on several threads at once. Errors: those of launching.
Result<ServerRunOutcome> runServer(ServerRunOptions options);

} // namespace tdw
