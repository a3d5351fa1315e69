#pragma once

#include "Host/ServerProcess.h"
#include "Host/ServerRun.h"
#include "Platform/FileHandle.h"

#include <poll.h>

#include <array>
#include <chrono>
#include <span>

namespace tdw {

/// Passes bytes on to a pipe as it takes them, and keeps the rest for later.
class CopyWriter {
public:
    explicit CopyWriter(FileHandle writer);

    pollfd interest() const;
    void add(std::span<const std::byte> bytes);
    void flush();

private:
    FileHandle m_writer;
    Data m_backlog;
};

/// One server from its start to its end. It waits for nothing by itself: whoever runs it waits for
/// its descriptors and its deadline, and lets it go on.
class RunningServer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr auto kNever = Clock::time_point::max();
    using Interests = std::array<pollfd, 4>;

    /// Errors: those of launching.
    static Result<RunningServer> start(ServerRunOptions options);

    /// What to wait for with `poll`.
    Interests interests() const;
    Clock::time_point deadline() const { return m_deadline; }

    /// Does what can be done now: reads, and kills the server that is past its deadline.
    /// @param interests what `poll` has made of the last ones
    /// @return whether the server has ended, and the outcome is whole
    bool advance(const Interests& interests);

    /// Kills the server; its end is yet to come.
    void kill();

    ServerRunOutcome takeOutcome() { return std::move(m_outcome); }

private:
    RunningServer(ServerProcess server, FileHandle standardErrorCopy, Clock::time_point deadline);

    bool readOutput();
    bool readStandardError();
    void readLeftovers();

    Process m_process;
    ServerStream m_output;
    ServerStream m_standardError;
    CopyWriter m_copy;
    Clock::time_point m_deadline;
    ServerRunOutcome m_outcome;
};

/// How long `poll` may wait for a deadline, in its own unit; a long wait comes in pieces.
int pollTimeoutUntil(RunningServer::Clock::time_point deadline);

} // namespace tdw
