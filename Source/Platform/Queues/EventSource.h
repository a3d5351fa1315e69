#pragma once

#include "Platform/Queues/Queue.h"
#include "Platform/Values/Result.h"

#include <functional>
#include <memory>
#include <utility>

namespace tdw {

/// What a source calls, always on its queue.
struct SourceHandlers {
    /// Something happened. Never runs twice at once, nor after the cancel handler has begun. One
    /// that is on its way when the source is cancelled on another thread still runs.
    std::function<void()> event {};

    /// The source is at its end, and no longer uses what it watched. Runs exactly once, after the
    /// last event handler, for every way of ending the source. May be empty.
    std::function<void()> cancel {};
};

/// Something that is watched, with handlers on a queue: the registration, which ends with this
/// object.
///
/// It starts suspended. Destroying it is cancelling it: the cancel handler still runs, and both
/// handlers with everything they hold are given up after that. Handlers may cancel or destroy the
/// source that they belong to. Safe for use by several threads at once, except for assignment.
class EventSource {
public:
    EventSource(EventSource&& other) noexcept = default;
    EventSource& operator=(EventSource&& other) noexcept;
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;

    /// Starts watching; does nothing the second time or on a cancelled source.
    void resume();

    void cancel();
    bool isCancelled() const;

protected:
    class Core;
    explicit EventSource(std::shared_ptr<Core> core)
        : m_core(std::move(core))
    {
    }
    ~EventSource();

private:
    std::shared_ptr<Core> m_core;
};

/// Calls its event handler whenever, and for as long as, a descriptor can be read without blocking:
/// bytes, end of file and errors alike. A regular file always can.
class ReadSource : public EventSource {
public:
    /// The descriptor stays the caller's, in whatever mode it is, and has to stay open until the
    /// source is cancelled.
    /// Errors: `kPosixErrorDomain` (EBADF, EMFILE, …); then no handler ever runs.
    static Result<ReadSource> create(int descriptor, Queue queue, SourceHandlers handlers);

private:
    using EventSource::EventSource;
};

/// Calls its event handler for signals sent to this process; several that come at once may be one
/// call. Any number of sources may watch one signal.
///
/// From `create` on, and until the last source of a signal is at its end, the signal's disposition
/// belongs to the sources (signals that come before `resume` are not lost); after that it is the
/// default one. At least one thread must not block the signal; a queue's own threads do.
class SignalSource : public EventSource {
public:
    /// Errors: `kPosixErrorDomain`, naming the signal (EINVAL: it cannot be watched).
    static Result<SignalSource> create(int signalNumber, Queue queue, SourceHandlers handlers);

private:
    using EventSource::EventSource;
};

} // namespace tdw
