#pragma once

#include "Platform/Queues/EventLoop.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Data.h"

#include <cstddef>
#include <span>

namespace tdw {

/// Passes bytes on to a pipe as its reader takes them, and keeps the rest for later. A reader that
/// goes away ends that; the process gets no SIGPIPE for it.
class PipeCopy {
public:
    /// The most that is kept for a reader that takes nothing.
    static constexpr std::size_t kBacklogLimit = std::size_t { 64 } << 20;

    /// A copy that goes nowhere.
    PipeCopy() = default;

    /// @param writer the only writing end, so that the reader sees the end; not open: nowhere
    explicit PipeCopy(FileHandle writer);

    /// Writes what the pipe takes now, and the rest when the loop sees that it takes more.
    void add(EventLoop& loop, std::span<const std::byte> bytes);

    /// No more is written by the loop: what is left stays for one of the functions below.
    void stop() { m_source = {}; }

    /// What the reader has not been given, which it never is then. Closes the pipe.
    Data takeRest();

    /// Goes on, on a thread of its own, until the reader has taken the rest or is gone.
    static void passOnRest(PipeCopy copy);

private:
    std::span<const std::byte> rest() const { return std::span(m_bytes).subspan(m_written); }
    void flush();
    void close();

    FileHandle m_writer;
    Data m_bytes;
    std::size_t m_written = 0; // of the bytes
    EventLoop::Source m_source;
};

} // namespace tdw
