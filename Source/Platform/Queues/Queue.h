#pragma once

#include "Platform/Export.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tdw {

class WorkerPool;

/// How urgent work is. A hint: the threads of `Background` work yield to everything else, the
/// others differ in name only.
enum class QualityOfService { UserInteractive, UserInitiated, Default, Utility, Background };

/// A block of work that can still be called off: a handle, whose copies all mean the same block.
///
/// The default handle is null: it converts to false, is not cancelled, and cancelling or running
/// it does nothing. Safe for use by several threads at once, except that one object must not be
/// assigned to while another thread uses that same object.
class TDW_EXPORT WorkItem {
public:
    constexpr WorkItem() = default;
    explicit WorkItem(std::function<void()> block);

    explicit operator bool() const { return m_state != nullptr; }

    /// From now on the block does not start; where it runs already, it runs to its end.
    void cancel();
    bool isCancelled() const;

    /// Runs the block on the calling thread unless it is cancelled.
    void run() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

/// A queue of work, run on threads of its own: a handle, whose copies all mean the same queue.
///
///     Queue queue = Queue::serial("TDWEvents");
///     queue.async([] { … });
///     queue.after(250ms, WorkItem([] { … }));
///
/// Work never runs on the submitter's stack, and a queue that is given none costs nothing: its
/// threads (which carry its label and leave all signals to others) start with the first work. An
/// exception that leaves a work item ends the process, and so does a system that refuses a queue
/// its first thread or its first timer.
///
/// When the last handle goes, work that was submitted still runs, timers not yet due are dropped,
/// and the threads are waited for; where it goes on one of the queue's own threads, they end by
/// themselves. Therefore a queue that may have long work to do when the process exits must not be
/// destroyed by `exit` (as a variable of static duration would be).
///
/// Safe for use by several threads at once, with the same exception as `WorkItem`.
class TDW_EXPORT Queue {
public:
    /// The most threads that a concurrent queue uses. Work that blocks does not hold up other work
    /// before that many items block at once.
    static constexpr std::size_t kMaximumThreads = 64;

    /// A queue that runs one item at a time, in the order of submission.
    static Queue serial(std::string_view label);

    /// A queue that runs items in parallel, starting them in the order of submission.
    static Queue concurrent(
        std::string_view label, QualityOfService quality = QualityOfService::Default);

    /// The serial queue of the main thread. Its work waits until `dispatchMain`.
    static Queue main();

    /// The process's shared concurrent queue of a quality. It is never destroyed.
    static Queue global(QualityOfService quality = QualityOfService::Default);

    const std::string& label() const;

    /// Submits work.
    void async(std::function<void()> block) const;
    void async(WorkItem item) const;

    /// Submits work once `delay` is over; at once when it is not positive. The steady clock counts.
    void after(std::chrono::nanoseconds delay, WorkItem item) const;

    /// Whether the calling thread is running work of this queue just now.
    bool isCurrent() const;

    bool operator==(const Queue& other) const = default;

private:
    struct State;
    explicit Queue(std::shared_ptr<State> state);
    friend WorkerPool& workerPool(const Queue& queue);

    std::shared_ptr<State> m_state;
};

/// Runs the main queue's work on the calling thread for good; the process ends by `exit` or by a
/// signal. To be called once, on the main thread.
[[noreturn]] TDW_EXPORT void dispatchMain();

} // namespace tdw
