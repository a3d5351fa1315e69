#pragma once

#include "Platform/Values/Result.h"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <span>

namespace tdw {

/// How long an answer that is being written is waited for when the process cannot go on. A reader
/// that does not read cannot be waited for without end.
inline constexpr std::chrono::seconds kWriterBound { 1 };

/// Standard output carries exactly one envelope per run, but two may want to write it: the thread
/// that does the work, and the time-out clock. Each holds this guard while it writes; the clock
/// takes it before it decides, and keeps it until the process has ended.
class StandardOutputGuard {
public:
    /// Waits for the other writer.
    StandardOutputGuard();

    /// Waits for the other writer within a bound; `isHeld` says with what success.
    explicit StandardOutputGuard(std::chrono::milliseconds bound);

    bool isHeld() const { return m_lock.owns_lock(); }

    /// Whether an envelope has been written in this process. Only true while held.
    bool hasAnswer() const;

    /// Writes an envelope. Errors: `kPosixErrorDomain`.
    Result<void> writeAnswer(std::span<const std::byte> envelope);

private:
    std::unique_lock<std::recursive_timed_mutex> m_lock;
};

} // namespace tdw
