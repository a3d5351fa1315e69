#pragma once

#include "Platform/Queues/EventLoop.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"
#include "Platform/Values/Result.h"

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tdw {

/// What it takes to start a server.
struct ServerLaunch {
    /// The path of the executable, already accepted.
    std::string executable;

    /// What the server sees as its own name.
    std::string serverName;

    /// The arguments after the program name.
    std::vector<std::string> arguments;

    /// Where the server tells its steps, as `traceAddress` has it.
    std::string trace {};
};

/// The reading end of one of a server's streams, read in chunks without waiting.
class ServerStream {
public:
    static constexpr std::size_t kChunkBytes = std::size_t { 64 } * 1024;
    using Chunk = std::array<std::byte, kChunkBytes>;

    explicit ServerStream(FileHandle reader)
        : m_reader(std::move(reader))
    {
    }

    /// Calls `readable` on the loop whenever `read` has something to do, up to the stream's end.
    /// Errors: `kPosixErrorDomain`.
    Result<void> watch(EventLoop& loop, EventLoop::Handler readable);

    /// Reads once; an empty result says that there is nothing now.
    /// @param chunk takes the bytes; the caller's, because many streams wait and one is read
    std::span<const std::byte> read(Chunk& chunk);

    FileHandle takeReader() { return std::move(m_reader); }

private:
    FileHandle m_reader;
    EventLoop::Source m_source;
};

/// A server that runs: its process, which leads a process group of its own, and its two streams.
/// The end of this object is the end of the server.
struct ChildServer {
    /// Once a server has ended, at most what its pipe could still hold belongs to it.
    static constexpr std::size_t kLeftoverLimit = std::size_t { 1 } << 20;

    /// Standard input and the environment are this process's own.
    /// Errors: those of pipes and of launching.
    static Result<ChildServer> start(const ServerLaunch& launch);

    /// Kills the server and its descendants; its end is yet to come.
    void kill();

    Process process;
    ServerStream output;
    ServerStream standardError;
};

/// Errors: `kPosixErrorDomain`.
Result<void> makeNonBlocking(const FileHandle& handle);

} // namespace tdw
