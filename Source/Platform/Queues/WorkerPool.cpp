#include "Platform/Queues/WorkerPool.h"

#include <asio/post.hpp>

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <system_error>
#include <utility>

namespace tdw {

namespace {

thread_local const WorkerPool* t_current = nullptr;

/// Blocks all signals on this thread for as long as it lives, for a new thread to inherit: signals
/// of the process belong to the threads that the application chose. The signals of a thread's own
/// faults stay, because blocked they would end the process past every crash handler.
class ScopedSignalMask {
public:
    ScopedSignalMask()
    {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : { SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS })
            sigdelset(&all, fault);
        (void)::pthread_sigmask(SIG_SETMASK, &all, &m_previous);
    }
    ScopedSignalMask(const ScopedSignalMask&) = delete;
    ScopedSignalMask& operator=(const ScopedSignalMask&) = delete;
    ~ScopedSignalMask() { (void)::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }

private:
    sigset_t m_previous {};
};

} // namespace

WorkerPool::WorkerPool(Options options)
    : m_options(std::move(options))
    , m_context(m_options.maximumThreads > 1 ? ASIO_CONCURRENCY_HINT_SAFE : 1)
    , m_workGuard(m_context.get_executor())
{
}

void WorkerPool::submit(std::function<void()> block) noexcept
{
    const Lock lock(m_mutex);
    asio::post(m_context,
        [this, block = std::move(block)]() mutable { performCounted(std::move(block)); });
    ++m_submitted;
    startThreadIfNeeded(lock);
}

void WorkerPool::submitAfter(std::chrono::nanoseconds delay, std::function<void()> block) noexcept
{
    const Clock::time_point now = Clock::now();
    const Clock::time_point due = now + std::min(delay, Clock::time_point::max() - now);

    // The pool's thread arms it: Asio's first timer is expensive, and the clock of a short-lived
    // server usually never fires.
    const Lock lock(m_mutex);
    asio::post(m_context, [this, due, block = std::move(block)]() mutable {
        const Lock threadLock(m_mutex);
        --m_submitted;
        if (!m_isClosed)
            armTimer(due, std::move(block), threadLock);
    });
    ++m_submitted;
    startThreadIfNeeded(lock);
}

void WorkerPool::armTimer(
    Clock::time_point due, std::function<void()> block, const Lock& lock) noexcept
{
    try {
        m_timers.emplace_front(m_context, due);
    } catch (...) {
        // Caught, so that the process's terminate handler can look at it.
        std::terminate();
    }
    m_timers.front().async_wait(
        [this, timer = m_timers.begin(), block = std::move(block)](std::error_code error) mutable {
            {
                const Lock handlerLock(m_mutex);
                m_timers.erase(timer);
                if (error)
                    return; // The queue is no more.
                ++m_submitted;
            }
            performCounted(std::move(block));
        });
    startThreadIfNeeded(lock);
}

void WorkerPool::beginWait()
{
    const Lock lock(m_mutex);
    ++m_waits;
    startThreadIfNeeded(lock);
}

void WorkerPool::endWait()
{
    const Lock lock(m_mutex);
    --m_waits;
}

void WorkerPool::perform(std::function<void()> block) noexcept
{
    {
        const Lock lock(m_mutex);
        ++m_submitted;
    }
    performCounted(std::move(block));
}

void WorkerPool::performCounted(std::function<void()> block) noexcept
{
    {
        const Lock lock(m_mutex);
        --m_submitted;
        ++m_busyThreads;
        startThreadIfNeeded(lock);
    }
    block();
    // What the block holds may take its time to go, too.
    block = nullptr;
    const Lock lock(m_mutex);
    --m_busyThreads;
}

void WorkerPool::startThreadIfNeeded(const Lock& /*lock*/)
{
    const bool hasWaits = m_waits > 0 || !m_timers.empty();
    const std::size_t needed = m_submitted + (hasWaits ? 1 : 0);
    const std::size_t idle = m_threadCount - std::min(m_threadCount, m_busyThreads);
    if (idle >= needed || m_threadCount >= m_options.maximumThreads)
        return;
    try {
        const ScopedSignalMask signalMask;
        std::thread thread([self = shared_from_this()] { self->runThread(); });
        ++m_threadCount;
        if (m_isDetached)
            thread.detach();
        else
            m_threads.push_back(std::move(thread));
    } catch (const std::system_error&) {
        // Those that run already do the work, only later; with none of them it would wait for ever.
        if (m_threadCount == 0)
            std::terminate();
    }
}

// NOLINTNEXTLINE(bugprone-exception-escape): an exception of Asio's is to end the process
void WorkerPool::runThread() noexcept
{
    std::array<char, 16> name {};
    m_options.label.copy(name.data(), name.size() - 1);
    (void)::pthread_setname_np(::pthread_self(), name.data());
    // Linux applies this to the thread alone.
    if (m_options.quality == QualityOfService::Background)
        (void)::setpriority(PRIO_PROCESS, 0, 10);
    t_current = this;
    m_context.run();
    t_current = nullptr;
}

bool WorkerPool::isCurrent() const
{
    return t_current == this;
}

// NOLINTNEXTLINE(bugprone-exception-escape): an exception of Asio's is to end the process
void WorkerPool::runOnThisThread() noexcept
{
    t_current = this;
    m_context.run();
    std::terminate(); // The work guard of a pool that is never closed keeps `run` from returning.
}

void WorkerPool::close()
{
    {
        const Lock lock(m_mutex);
        for (asio::steady_timer& timer : m_timers)
            timer.cancel();
        m_isClosed = true;
        m_workGuard.reset();
        m_isDetached = isCurrent();
    }
    while (true) {
        // Work that is still to run may start further threads.
        std::vector<std::thread> threads;
        {
            const Lock lock(m_mutex);
            threads.swap(m_threads);
        }
        if (threads.empty())
            return;
        for (std::thread& thread : threads) {
            if (m_isDetached)
                thread.detach();
            else
                thread.join();
        }
    }
}

} // namespace tdw
