#pragma once

#include "Platform/FileHandle.h"
#include "Platform/Process.h"
#include "Platform/Result.h"

#include <poll.h>

#include <array>
#include <cstddef>
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
};

/// A server that runs, with the reading ends of its two streams, which do not block.
struct ServerProcess {
    Process process;
    FileHandle output;
    FileHandle standardError;
};

/// Starts a server in a process group of its own. Standard input and the environment are this
/// process's own. Errors: those of pipes and of launching.
Result<ServerProcess> launchServer(const ServerLaunch& launch);

/// Errors: `kPosixErrorDomain`.
Result<void> makeNonBlocking(const FileHandle& handle);

/// Once a server has ended, at most what its pipe could still hold belongs to it.
inline constexpr std::size_t kLeftoverLimit = std::size_t { 1 } << 20;

/// The reading end of one of a server's streams, read in chunks without waiting.
class ServerStream {
public:
    static constexpr std::size_t kChunkBytes = std::size_t { 64 } * 1024;
    using Chunk = std::array<std::byte, kChunkBytes>;

    explicit ServerStream(FileHandle reader)
        : m_reader(std::move(reader))
    {
    }

    /// What `poll` is to wait for; a closed descriptor (-1) is passed over by it.
    pollfd interest() const { return { m_reader.descriptor(), POLLIN, 0 }; }

    /// Reads once; an empty result says that there is nothing now.
    /// @param chunk takes the bytes; the caller's, because many streams may wait and one is read
    std::span<const std::byte> read(Chunk& chunk);

private:
    FileHandle m_reader;
};

} // namespace tdw
