#include "Platform/Queues/EventSource.h"

#include "Platform/Queues/WorkerPool.h"
#include "Platform/System/FileHandle.h"

#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>

#include <fcntl.h>
#include <sys/epoll.h>

#include <cassert>
#include <cerrno>
#include <mutex>
#include <string>
#include <system_error>

namespace tdw {

namespace {

/// What a source waits for. Used by one thread at a time.
class Waiter {
public:
    Waiter() = default;
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;
    virtual ~Waiter() = default;

    /// Calls `done` once on the queue, when the event is there or the wait is cancelled.
    virtual void wait(std::function<void()> done) = 0;

    /// Ends a wait that is under way early.
    virtual void cancel() = 0;
};

/// Waits for an epoll instance that watches the one descriptor. Asio makes a descriptor that it
/// waits for non-blocking, in every process that shares it, and keeps its number beyond its
/// closing; this way it does that to a descriptor of its own.
class DescriptorWaiter : public Waiter {
public:
    DescriptorWaiter(WorkerPool& pool, FileHandle epoll)
        : m_descriptor(pool.context())
    {
        m_descriptor.assign(epoll.descriptor());
        (void)epoll.release();
    }

    void wait(std::function<void()> done) override
    {
        m_descriptor.async_wait(asio::posix::descriptor_base::wait_read,
            [done = std::move(done)](std::error_code) { done(); });
    }

    void cancel() override
    {
        std::error_code ignored;
        m_descriptor.cancel(ignored);
    }

private:
    asio::posix::stream_descriptor m_descriptor;
};

/// For descriptors that epoll refuses because they never block, as regular files.
class AlwaysReadyWaiter : public Waiter {
public:
    explicit AlwaysReadyWaiter(WorkerPool& pool)
        : m_pool(pool)
    {
    }

    void wait(std::function<void()> done) override { m_pool.submit(std::move(done)); }
    void cancel() override { }

private:
    WorkerPool& m_pool;
};

class SignalWaiter : public Waiter {
public:
    SignalWaiter(WorkerPool& pool, int signalNumber)
        : m_signals(pool.context(), signalNumber)
    {
    }

    void wait(std::function<void()> done) override
    {
        m_signals.async_wait([done = std::move(done)](std::error_code, int) { done(); });
    }

    void cancel() override
    {
        std::error_code ignored;
        m_signals.cancel(ignored);
    }

private:
    asio::signal_set m_signals;
};

std::unique_ptr<Waiter> makeReadWaiter(int descriptor, WorkerPool& pool)
{
    FileHandle epoll(::epoll_create1(EPOLL_CLOEXEC));
    epoll_event event {};
    event.events = EPOLLIN;
    if (epoll.isOpen() && ::epoll_ctl(epoll.descriptor(), EPOLL_CTL_ADD, descriptor, &event) == 0)
        return std::make_unique<DescriptorWaiter>(pool, std::move(epoll));
    if (errno == EPERM)
        return std::make_unique<AlwaysReadyWaiter>(pool);
    throw std::system_error(errno, std::system_category());
}

/// Turns the exceptions of `make` into errors: Asio has no other way to report that it cannot open
/// its own descriptors.
template <typename Make>
Result<std::unique_ptr<Waiter>> makeWaiter(Make make, const std::string& context)
{
    try {
        return std::unique_ptr<Waiter>(make());
    } catch (const std::system_error& error) {
        return Error::posix(error.code().value(), context);
    }
}

} // namespace

/// The source's life. Exactly one party carries it on at a time: its owner while it is suspended,
/// then the wait that is under way, then the event handler that runs, and again the wait. A
/// cancellation is a mark that this party finds, so that there is one end and one cancel handler.
class EventSource::Core : public std::enable_shared_from_this<EventSource::Core> {
public:
    Core(Queue queue, std::unique_ptr<Waiter> waiter, SourceHandlers handlers)
        : m_queue(std::move(queue))
        , m_waiter(std::move(waiter))
        , m_handlers(std::move(handlers))
    {
        assert(m_handlers.event);
    }

    void resume()
    {
        const std::lock_guard lock(m_mutex);
        if (m_state != State::Suspended || m_isCancelled)
            return;
        workerPool(m_queue).beginWait();
        wait();
    }

    void cancel()
    {
        const std::lock_guard lock(m_mutex);
        if (m_isCancelled)
            return;
        m_isCancelled = true;
        if (m_state == State::Waiting)
            m_waiter->cancel();
        if (m_state == State::Suspended)
            workerPool(m_queue).submit([self = shared_from_this()] { self->finish(); });
    }

    bool isCancelled() const
    {
        const std::lock_guard lock(m_mutex);
        return m_isCancelled;
    }

private:
    enum class State {
        Suspended, // Not resumed yet.
        Waiting, // `waitEnded` will be called.
        Handling, // The event handler runs.
    };

    void wait()
    {
        m_state = State::Waiting;
        m_waiter->wait([self = shared_from_this()] { self->waitEnded(); });
    }

    void waitEnded()
    {
        WorkerPool& pool = workerPool(m_queue);
        if (enterHandler()) {
            pool.perform([this] { m_handlers.event(); });
            if (leaveHandler())
                return;
        }
        pool.endWait();
        pool.perform([this] { finish(); });
    }

    /// Both say whether the source is to go on.
    bool enterHandler()
    {
        const std::lock_guard lock(m_mutex);
        m_state = State::Handling;
        return !m_isCancelled;
    }
    bool leaveHandler()
    {
        const std::lock_guard lock(m_mutex);
        if (!m_isCancelled)
            wait();
        return !m_isCancelled;
    }

    void finish()
    {
        m_waiter.reset();
        const SourceHandlers handlers = std::move(m_handlers);
        if (handlers.cancel)
            handlers.cancel();
    }

    // The queue goes last, because the waiter lives in its context.
    const Queue m_queue;
    std::unique_ptr<Waiter> m_waiter;
    SourceHandlers m_handlers;

    mutable std::mutex m_mutex;
    // Everything below belongs to the mutex.
    State m_state = State::Suspended;
    bool m_isCancelled = false;
};

EventSource& EventSource::operator=(EventSource&& other) noexcept
{
    if (m_core && m_core != other.m_core)
        m_core->cancel();
    m_core = std::move(other.m_core);
    return *this;
}

EventSource::~EventSource()
{
    if (m_core)
        m_core->cancel();
}

void EventSource::resume()
{
    assert(m_core);
    m_core->resume();
}

void EventSource::cancel()
{
    assert(m_core);
    m_core->cancel();
}

bool EventSource::isCancelled() const
{
    assert(m_core);
    return m_core->isCancelled();
}

Result<ReadSource> ReadSource::create(int descriptor, Queue queue, SourceHandlers handlers)
{
    auto waiter = TDW_TRY(makeWaiter([&] { return makeReadWaiter(descriptor, workerPool(queue)); },
        "Cannot watch descriptor " + std::to_string(descriptor)));
    return ReadSource(
        std::make_shared<Core>(std::move(queue), std::move(waiter), std::move(handlers)));
}

Result<SignalSource> SignalSource::create(int signalNumber, Queue queue, SourceHandlers handlers)
{
    auto waiter = TDW_TRY(
        makeWaiter([&] { return std::make_unique<SignalWaiter>(workerPool(queue), signalNumber); },
            "Cannot watch signal number " + std::to_string(signalNumber)));
    return SignalSource(
        std::make_shared<Core>(std::move(queue), std::move(waiter), std::move(handlers)));
}

} // namespace tdw
