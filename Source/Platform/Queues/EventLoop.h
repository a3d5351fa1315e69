#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Result.h"

#include <chrono>
#include <functional>
#include <memory>

namespace tdw {

/// The event loop of one thread: descriptors, timers, signals, and work from other threads.
///
///     EventLoop loop = *EventLoop::create();
///     const auto input = *loop.whenReadable(STDIN_FILENO, [&] { … });
///     const auto interrupt = *loop.onSignal(SIGINT, [&] { loop.stop(); });
///     const auto client = TidewellServiceClient::initWithQueue(CallbackQueue(loop));
///     loop.run();
///
/// Handlers run one at a time inside `run` and `runUntil`, never on the stack of the function that
/// asked for them. They may add and end sources, and must not run the loop. An exception that
/// leaves a handler ends the process.
///
/// Belongs to the thread that runs it, except for `post`, `stop` and what `poster` returns, which
/// any thread may call. Sources end before the loop does. Work that is posted and has not run when
/// the loop is destroyed is destroyed with it.
class TDW_EXPORT EventLoop {
    class Core;

public:
    using Clock = std::chrono::steady_clock;
    using Handler = std::function<void()>;
    static constexpr Clock::time_point kNever = Clock::time_point::max();

    /// What the loop waits for. Ends with this object, and its handler does not run any more; a
    /// handler may destroy the source that it belongs to. The default one waits for nothing.
    class TDW_EXPORT Source {
    public:
        Source() = default;
        Source(Source&& other) noexcept = default;
        Source& operator=(Source&& other) noexcept;
        Source(const Source&) = delete;
        Source& operator=(const Source&) = delete;
        ~Source();

        /// Whether it still waits: not ended, and for a timer, not due yet.
        explicit operator bool() const;

    private:
        friend class EventLoop::Core;
        class Entry;
        explicit Source(std::shared_ptr<Entry> entry);
        std::shared_ptr<Entry> m_entry;
    };

    /// Errors: `kPosixErrorDomain` (EMFILE, …).
    static Result<EventLoop> create();

    EventLoop(EventLoop&& other) noexcept;
    EventLoop& operator=(EventLoop&& other) noexcept;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    /// Runs a block once, after those that were posted before it. Any thread.
    void post(Handler block) const;

    /// A function that posts, for others to keep: it may outlive the loop, and does nothing then.
    std::function<void(Handler block)> poster() const;

    /// Calls the handler as long as a descriptor can be read, or written, without blocking: at end
    /// of file and on errors too. A regular file always can. The descriptor stays the caller's, in
    /// whatever mode it is, and stays open until the source has ended. One source at a time may
    /// wait for one direction of one descriptor.
    /// Errors: `kPosixErrorDomain` (EBADF, ENOSPC, …).
    Result<Source> whenReadable(int descriptor, Handler handler);
    Result<Source> whenWritable(int descriptor, Handler handler);

    /// Calls the handler once, when `delay` is over on the steady clock.
    Source after(std::chrono::nanoseconds delay, Handler handler);

    /// Calls the handler for signals sent to this process; several that come at once may be one
    /// call. Until the last source of a signal ends, in whatever loop, its disposition belongs to
    /// them; after that it is the default one. At least one thread must not block the signal.
    /// Errors: `kPosixErrorDomain` (EINVAL: it cannot be watched).
    Result<Source> onSignal(int signalNumber, Handler handler);

    /// Runs the loop until `stop`.
    void run() noexcept;

    /// Runs the loop until a condition holds, which is asked first and after each handler.
    /// @return whether it holds; false after `stop` and once the deadline has passed
    bool runUntil(
        const std::function<bool()>& condition, Clock::time_point deadline = kNever) noexcept;

    /// Ends the `run` or `runUntil` that is under way, or the next one. Any thread.
    void stop() const;

private:
    struct Inbox;
    explicit EventLoop(std::shared_ptr<Inbox> inbox);
    Core& core() const;

    std::shared_ptr<Inbox> m_inbox;
};

} // namespace tdw
