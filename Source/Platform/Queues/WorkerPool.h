#pragma once

#include "Platform/Queues/Queue.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tdw {

/// The threads behind a queue: an Asio context, and the threads that run it.
///
/// A thread is started whenever none is free for work that was submitted, or for a wait (a timer,
/// a descriptor) that may end at any time, up to the bound. The threads hold the pool, so that it
/// outlives a queue whose last handle goes on one of them.
///
/// Safe for use by several threads at once.
class WorkerPool : public std::enable_shared_from_this<WorkerPool> {
public:
    struct Options {
        std::string label {};
        QualityOfService quality = QualityOfService::Default;
        /// Zero: no threads; a caller lends one through `runOnThisThread`.
        std::size_t maximumThreads = 1;
    };

    explicit WorkerPool(Options options);

    const std::string& label() const { return m_options.label; }

    /// For waiting on descriptors. Handlers there do their part of a wait at once and hand
    /// everything else to `perform`.
    asio::io_context& context() { return m_context; }

    void submit(std::function<void()> block) noexcept;
    void submitAfter(std::chrono::nanoseconds delay, std::function<void()> block) noexcept;

    /// Announces a wait on the context, and its end; while there is one, a thread is kept free.
    void beginWait();
    void endWait();

    /// Runs a block on the calling thread, which is one of the pool's, as work of the queue.
    void perform(std::function<void()> block) noexcept;

    /// Whether the calling thread is one of the pool's.
    bool isCurrent() const;

    /// Makes the calling thread one of the pool's for good.
    [[noreturn]] void runOnThisThread() noexcept;

    /// Lets the threads finish what was submitted, without the timers, and end; waits for that
    /// unless the calling thread is one of them. Nothing may be submitted any more.
    void close();

private:
    using Lock = std::lock_guard<std::mutex>;
    using Clock = asio::steady_timer::clock_type;

    void performCounted(std::function<void()> block) noexcept;
    void armTimer(Clock::time_point due, std::function<void()> block, const Lock& lock) noexcept;
    void startThreadIfNeeded(const Lock& lock);
    void runThread() noexcept;

    const Options m_options;
    asio::io_context m_context;
    asio::executor_work_guard<asio::io_context::executor_type> m_workGuard;

    std::mutex m_mutex;
    // Everything below belongs to the mutex.
    std::list<asio::steady_timer> m_timers;
    std::vector<std::thread> m_threads;
    std::size_t m_threadCount = 0;
    std::size_t m_busyThreads = 0;
    std::size_t m_submitted = 0; // and not yet begun
    std::size_t m_waits = 0; // without the timers
    bool m_isClosed = false;
    bool m_isDetached = false;
};

/// The pool behind a queue.
WorkerPool& workerPool(const Queue& queue);

} // namespace tdw
