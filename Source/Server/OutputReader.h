#pragma once

#include "Platform/FileHandle.h"
#include "Platform/Queue.h"
#include "Platform/Result.h"
#include "Platform/Source.h"

#include <functional>
#include <optional>
#include <utility>

namespace tdw {

/// Watches whether anybody still reads what this process writes, which a server that has nothing to
/// write does not see otherwise.
///
///     auto watch = OutputReader::watch(STDOUT_FILENO, queue, [] { … });
///
/// For pipes, sockets and terminals; a file has no reader that could go, and is never reported.
class OutputReader {
public:
    /// @param isGone called on the queue once the last reader is gone, at once where it has gone
    ///        before, and again and again until this object is gone
    /// Errors: `kPosixErrorDomain` (EBADF, EMFILE, …).
    static Result<OutputReader> watch(
        int descriptor, const Queue& queue, std::function<void()> isGone);

private:
    OutputReader(FileHandle epoll, std::optional<ReadSource> source)
        : m_epoll(std::move(epoll))
        , m_source(std::move(source))
    {
    }

    FileHandle m_epoll;
    std::optional<ReadSource> m_source;
};

} // namespace tdw
