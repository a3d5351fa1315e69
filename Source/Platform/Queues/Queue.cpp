#include "Platform/Queues/Queue.h"

#include "Platform/NeverDestroyed.h"
#include "Platform/Queues/WorkerPool.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <utility>

namespace tdw {

struct WorkItem::State {
    std::function<void()> block;
    std::atomic<bool> isCancelled = false;
};

WorkItem::WorkItem(std::function<void()> block)
    : m_state(std::make_shared<State>())
{
    m_state->block = std::move(block);
}

void WorkItem::cancel()
{
    if (m_state)
        m_state->isCancelled = true;
}

bool WorkItem::isCancelled() const
{
    return m_state && m_state->isCancelled;
}

void WorkItem::run() const
{
    if (m_state && !m_state->isCancelled)
        m_state->block();
}

/// What the handles share. Work holds handles at most, never the pool's threads themselves, so this
/// goes with the last handle although threads may still run.
struct Queue::State {
    explicit State(WorkerPool::Options options)
        : pool(std::make_shared<WorkerPool>(std::move(options)))
    {
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { pool->close(); }

    std::shared_ptr<WorkerPool> pool;
};

WorkerPool& workerPool(const Queue& queue)
{
    assert(queue.m_state);
    return *queue.m_state->pool;
}

Queue::Queue(std::shared_ptr<State> state)
    : m_state(std::move(state))
{
}

Queue Queue::serial(std::string_view label)
{
    return Queue(std::make_shared<State>(WorkerPool::Options { .label = std::string(label) }));
}

Queue Queue::concurrent(std::string_view label, QualityOfService quality)
{
    return Queue(std::make_shared<State>(WorkerPool::Options {
        .label = std::string(label), .quality = quality, .maximumThreads = kMaximumThreads }));
}

Queue Queue::main()
{
    static const Queue& queue = neverDestroyed(Queue(
        std::make_shared<State>(WorkerPool::Options { .label = "tdw.main", .maximumThreads = 0 })));
    return queue;
}

Queue Queue::global(QualityOfService quality)
{
    using enum QualityOfService;
    static const auto& queues = neverDestroyed(std::array {
        concurrent("tdw.interactive", UserInteractive),
        concurrent("tdw.initiated", UserInitiated),
        concurrent("tdw.default", Default),
        concurrent("tdw.utility", Utility),
        concurrent("tdw.background", Background),
    });
    return queues.at(static_cast<std::size_t>(quality));
}

const std::string& Queue::label() const
{
    return workerPool(*this).label();
}

void Queue::async(std::function<void()> block) const
{
    workerPool(*this).submit(std::move(block));
}

void Queue::async(WorkItem item) const
{
    workerPool(*this).submit([item = std::move(item)] { item.run(); });
}

void Queue::after(std::chrono::nanoseconds delay, WorkItem item) const
{
    workerPool(*this).submitAfter(delay, [item = std::move(item)] { item.run(); });
}

bool Queue::isCurrent() const
{
    return workerPool(*this).isCurrent();
}

void dispatchMain()
{
    assert(::gettid() == ::getpid());
    workerPool(Queue::main()).runOnThisThread();
}

} // namespace tdw
