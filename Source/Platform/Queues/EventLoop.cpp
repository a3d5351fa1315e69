#include "Platform/Queues/EventLoop.h"

#include "Platform/System/FileHandle.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <sys/epoll.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace tdw {

/// A source as the loop sees it.
class EventLoop::Source::Entry {
public:
    explicit Entry(Handler handler)
        : m_handler(std::move(handler))
    {
        assert(m_handler);
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    virtual ~Entry() = default;

    bool isWaiting() const { return m_isWaiting; }

    void end()
    {
        if (std::exchange(m_isWaiting, false))
            cancel();
    }

    void markDue() { m_isWaiting = false; }

    /// The caller keeps the entry alive: the handler may destroy the source.
    void callHandler() const { m_handler(); }

private:
    /// Ends the wait.
    virtual void cancel() = 0;

    const Handler m_handler;
    bool m_isWaiting = true;
};

/// Asio's context, and one epoll instance for the descriptors of others, which Asio waits for in
/// their place: it makes a descriptor that it waits for non-blocking for every process that shares
/// it, and keeps its number beyond its closing.
class __attribute__((visibility("hidden"))) EventLoop::Core {
public:
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;
    ~Core() = default;

    explicit Core(FileHandle epoll)
        : m_epoll(m_context)
        , m_workGuard(m_context.get_executor())
    {
        m_epoll.assign(epoll.descriptor());
        (void)epoll.release();
    }

    asio::io_context& context() { return m_context; }

    Result<Source> watch(int descriptor, bool writes, Handler handler);
    Source after(std::chrono::nanoseconds delay, Handler handler);
    Result<Source> onSignal(int signalNumber, Handler handler);

private:
    struct DescriptorEntry;
    struct TimerEntry;
    struct SignalEntry;

    /// The two directions of one descriptor.
    struct Directions {
        std::weak_ptr<DescriptorEntry> reading;
        std::weak_ptr<DescriptorEntry> writing;
    };

    int updateInterest(int descriptor, const Directions& directions);
    void unwatch(int descriptor, bool writes);
    void waitForDescriptors();
    void descriptorsReady();
    void callAlways(const std::shared_ptr<DescriptorEntry>& entry);

    asio::io_context m_context { 1 };
    asio::posix::stream_descriptor m_epoll;
    asio::executor_work_guard<asio::io_context::executor_type> m_workGuard;
    std::map<int, Directions> m_descriptors;
    bool m_isWaitingForDescriptors = false;
};

struct EventLoop::Core::DescriptorEntry : Source::Entry {
    DescriptorEntry(Core& owner, int watched, bool writing, Handler handler)
        : Entry(std::move(handler))
        , core(owner)
        , descriptor(watched)
        , writes(writing)
    {
    }
    void cancel() override
    {
        if (!isAlwaysReady)
            core.unwatch(descriptor, writes);
    }

    Core& core;
    const int descriptor;
    const bool writes;
    bool isAlwaysReady = false;
};

struct EventLoop::Core::TimerEntry : Source::Entry {
    TimerEntry(Core& owner, Clock::time_point due, Handler handler)
        : Entry(std::move(handler))
        , timer(owner.context(), due)
    {
    }
    void cancel() override { timer.cancel(); }

    asio::steady_timer timer;
};

struct EventLoop::Core::SignalEntry : Source::Entry {
    SignalEntry(Core& owner, int signalNumber, Handler handler)
        : Entry(std::move(handler))
        , signals(owner.context(), signalNumber)
    {
    }
    void cancel() override
    {
        std::error_code ignored;
        signals.clear(ignored);
    }
    static void wait(const std::shared_ptr<SignalEntry>& entry)
    {
        entry->signals.async_wait([weak = std::weak_ptr(entry)](std::error_code error, int) {
            const auto self = weak.lock();
            if (error || !self || !self->isWaiting())
                return;
            wait(self);
            self->callHandler();
        });
    }

    asio::signal_set signals;
};

Result<EventLoop::Source> EventLoop::Core::watch(int descriptor, bool writes, Handler handler)
{
    auto entry = std::make_shared<DescriptorEntry>(*this, descriptor, writes, std::move(handler));
    Directions& directions = m_descriptors[descriptor];
    auto& place = writes ? directions.writing : directions.reading;
    assert(place.expired());
    place = entry;
    const int error = updateInterest(descriptor, directions);
    if (error == EPERM) {
        entry->isAlwaysReady = true;
        m_descriptors.erase(descriptor);
        callAlways(entry);
    } else if (error != 0) {
        entry->markDue();
        m_descriptors.erase(descriptor);
        return Error::posix(error, "Cannot watch descriptor " + std::to_string(descriptor));
    }
    return Source(std::move(entry));
}

/// Tells the epoll instance what is waited for. Returns an error number, or 0.
int EventLoop::Core::updateInterest(int descriptor, const Directions& directions)
{
    epoll_event event {};
    event.data.fd = descriptor;
    event.events = (directions.reading.expired() ? 0U : static_cast<unsigned>(EPOLLIN))
        | (directions.writing.expired() ? 0U : static_cast<unsigned>(EPOLLOUT));
    const int epoll = m_epoll.native_handle();
    if (::epoll_ctl(epoll, EPOLL_CTL_MOD, descriptor, &event) != 0
        && (errno != ENOENT || ::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) != 0))
        return errno;
    if (!m_isWaitingForDescriptors)
        waitForDescriptors();
    return 0;
}

void EventLoop::Core::unwatch(int descriptor, bool writes)
{
    const auto found = m_descriptors.find(descriptor);
    Directions& directions = found->second;
    (writes ? directions.writing : directions.reading).reset();
    if (!directions.reading.expired() || !directions.writing.expired()) {
        (void)updateInterest(descriptor, directions);
        return;
    }
    m_descriptors.erase(found);
    (void)::epoll_ctl(m_epoll.native_handle(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void EventLoop::Core::waitForDescriptors()
{
    m_isWaitingForDescriptors = true;
    m_epoll.async_wait(asio::posix::descriptor_base::wait_read, [this](std::error_code error) {
        m_isWaitingForDescriptors = false;
        if (!error)
            descriptorsReady();
    });
}

/// One event at a time: a handler may end what another event would be about. The instance hands
/// them out in turn.
void EventLoop::Core::descriptorsReady()
{
    epoll_event event {};
    const int count = ::epoll_wait(m_epoll.native_handle(), &event, 1, 0);
    if (!m_descriptors.empty())
        waitForDescriptors();
    const auto found = count > 0 ? m_descriptors.find(event.data.fd) : m_descriptors.end();
    if (found == m_descriptors.end())
        return;
    const auto reading = found->second.reading.lock();
    const auto writing = found->second.writing.lock();
    // Errors and hang-ups concern both directions.
    if (reading && (event.events & ~static_cast<unsigned>(EPOLLOUT)) != 0)
        reading->callHandler();
    if (writing && writing->isWaiting() && (event.events & ~static_cast<unsigned>(EPOLLIN)) != 0)
        writing->callHandler();
}

/// Regular files never block, and epoll does not take them.
void EventLoop::Core::callAlways(const std::shared_ptr<DescriptorEntry>& entry)
{
    asio::post(m_context, [this, weak = std::weak_ptr(entry)] {
        const auto self = weak.lock();
        if (!self || !self->isWaiting())
            return;
        callAlways(self);
        self->callHandler();
    });
}

EventLoop::Source EventLoop::Core::after(std::chrono::nanoseconds delay, Handler handler)
{
    const Clock::time_point now = Clock::now();
    const Clock::time_point due
        = now + std::min<Clock::duration>(delay, Clock::time_point::max() - now);
    const auto entry = std::make_shared<TimerEntry>(*this, due, std::move(handler));
    entry->timer.async_wait([weak = std::weak_ptr(entry)](std::error_code) {
        const auto self = weak.lock();
        if (!self || !self->isWaiting())
            return;
        self->markDue();
        self->callHandler();
    });
    return Source(entry);
}

Result<EventLoop::Source> EventLoop::Core::onSignal(int signalNumber, Handler handler)
{
    try {
        const auto entry = std::make_shared<SignalEntry>(*this, signalNumber, std::move(handler));
        SignalEntry::wait(entry);
        return Source(entry);
    } catch (const std::system_error& error) {
        return Error::posix(
            error.code().value(), "Cannot watch signal number " + std::to_string(signalNumber));
    }
}

/// What other threads reach: it outlives the loop, and then takes nothing more.
struct EventLoop::Inbox : std::enable_shared_from_this<EventLoop::Inbox> {
    std::mutex mutex;
    std::deque<Handler> blocks; // belongs to the mutex
    std::unique_ptr<Core> core; // others than the loop's own thread use it under the mutex

    void post(Handler block)
    {
        const std::lock_guard lock(mutex);
        if (!core)
            return;
        blocks.push_back(std::move(block));
        asio::post(core->context(), [self = shared_from_this()] { self->runNext(); });
    }

    void runNext()
    {
        std::unique_lock lock(mutex);
        const Handler block = std::move(blocks.front());
        blocks.pop_front();
        lock.unlock();
        block();
    }

    /// What blocks hold may end sources and post as it goes: the loop is still there for the one,
    /// and the mutex is free for the other.
    void close()
    {
        std::unique_lock lock(mutex);
        const std::unique_ptr<Core> ended = std::move(core);
        const std::deque<Handler> dropped = std::move(blocks);
        lock.unlock();
    }
};

EventLoop::Source::Source(std::shared_ptr<Entry> entry)
    : m_entry(std::move(entry))
{
}

EventLoop::Source& EventLoop::Source::operator=(Source&& other) noexcept
{
    const Source ended(std::exchange(m_entry, std::move(other.m_entry)));
    return *this;
}

EventLoop::Source::~Source()
{
    if (m_entry)
        m_entry->end();
}

EventLoop::Source::operator bool() const
{
    return m_entry && m_entry->isWaiting();
}

Result<EventLoop> EventLoop::create()
{
    FileHandle epoll(::epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.isOpen())
        return Error::posix(errno, "Cannot make an event loop");
    try {
        auto inbox = std::make_shared<Inbox>();
        inbox->core = std::make_unique<Core>(std::move(epoll));
        return EventLoop(std::move(inbox));
    } catch (const std::system_error& error) {
        // Asio has no other way to report that it cannot open its own descriptors.
        return Error::posix(error.code().value(), "Cannot make an event loop");
    }
}

EventLoop::EventLoop(std::shared_ptr<Inbox> inbox)
    : m_inbox(std::move(inbox))
{
}

EventLoop::EventLoop(EventLoop&& other) noexcept = default;

EventLoop& EventLoop::operator=(EventLoop&& other) noexcept
{
    const EventLoop ended(std::exchange(m_inbox, std::move(other.m_inbox)));
    return *this;
}

EventLoop::~EventLoop()
{
    if (m_inbox)
        m_inbox->close();
}

EventLoop::Core& EventLoop::core() const
{
    assert(m_inbox);
    return *m_inbox->core;
}

void EventLoop::post(Handler block) const
{
    m_inbox->post(std::move(block));
}

std::function<void(EventLoop::Handler)> EventLoop::poster() const
{
    return [inbox = m_inbox](Handler block) {
        inbox->post(std::move(block));
    };
}

Result<EventLoop::Source> EventLoop::whenReadable(int descriptor, Handler handler)
{
    return core().watch(descriptor, false, std::move(handler));
}

Result<EventLoop::Source> EventLoop::whenWritable(int descriptor, Handler handler)
{
    return core().watch(descriptor, true, std::move(handler));
}

EventLoop::Source EventLoop::after(std::chrono::nanoseconds delay, Handler handler)
{
    return core().after(delay, std::move(handler));
}

Result<EventLoop::Source> EventLoop::onSignal(int signalNumber, Handler handler)
{
    return core().onSignal(signalNumber, std::move(handler));
}

void EventLoop::run() noexcept
{
    (void)runUntil([] { return false; });
}

bool EventLoop::runUntil(
    const std::function<bool()>& condition, Clock::time_point deadline) noexcept
{
    // Asio's own wait with a bound wakes up every second.
    bool isLate = false;
    const Source timeout = deadline == kNever
        ? Source()
        : after(deadline - Clock::now(), [&isLate] { isLate = true; });
    asio::io_context& context = core().context();
    bool holds = condition();
    while (!holds && !isLate && context.run_one() > 0)
        holds = condition();
    if (context.stopped())
        context.restart();
    return holds;
}

void EventLoop::stop() const
{
    const std::lock_guard lock(m_inbox->mutex);
    if (m_inbox->core)
        m_inbox->core->context().stop();
}

} // namespace tdw
