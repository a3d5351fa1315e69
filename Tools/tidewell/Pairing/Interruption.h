#pragma once

#include "Events/SignalWatch.h"
#include "Platform/Result.h"

#include <chrono>
#include <utility>

namespace tdw::cli {

/// Turns SIGINT and SIGTERM into something to wait for, for as long as it lives, so that the tool
/// can tidy up before it ends. Threads that are started meanwhile leave these signals alone.
class Interruption {
public:
    enum class Awaited { Event, Deadline, Interrupted };

    /// Errors: `kPosixErrorDomain`
    static Result<Interruption> create();

    /// Waits until `descriptor` has something to read or has been closed at its other end, until
    /// the deadline, or until a signal; the signal stays pending.
    /// @param descriptor -1: waits for the two others
    Awaited waitFor(int descriptor, std::chrono::steady_clock::time_point deadline) const;

    /// Ends the process by the signal that came, as it would have without this object, so that
    /// whoever started the tool sees what ended it.
    [[noreturn]] void endProcess() const;

private:
    explicit Interruption(SignalWatch signals)
        : m_signals(std::move(signals))
    {
    }

    SignalWatch m_signals;
};

} // namespace tdw::cli
