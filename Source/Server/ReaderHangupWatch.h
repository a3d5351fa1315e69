#pragma once

#include "Platform/Queues/EventSource.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <functional>
#include <optional>
#include <utility>

namespace tdw {

/// Watches whether the output of this process still has a reader, which a server that has nothing
/// to write does not see otherwise.
///
///     auto watch = ReaderHangupWatch::watch(STDOUT_FILENO, queue, [] { … });
///
/// For pipes, sockets and terminals; a file has no reader that could go, and is never reported.
class ReaderHangupWatch {
public:
    /// @param isGone called on the queue once the last reader is gone, at once where it has gone
    ///        before, and again and again until this object is gone
    /// Errors: `kPosixErrorDomain` (EBADF, EMFILE, …).
    static Result<ReaderHangupWatch> watch(
        int descriptor, const Queue& queue, std::function<void()> isGone);

private:
    ReaderHangupWatch(FileHandle epoll, std::optional<ReadSource> source)
        : m_epoll(std::move(epoll))
        , m_source(std::move(source))
    {
    }

    FileHandle m_epoll;
    std::optional<ReadSource> m_source;
};

} // namespace tdw
