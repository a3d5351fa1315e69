#pragma once

#include "Platform/Queues/EventLoop.h"
#include "Platform/Queues/Queue.h"

#include <functional>
#include <utility>

namespace tdw {

/// Where an application wants its callbacks: one of our queues or event loops, or its own.
///
///     CallbackQueue queue([loop](std::function<void()> block) { loop->post(std::move(block)); });
///
/// Copies mean the same queue. Safe for use by several threads at once.
class CallbackQueue {
public:
    /// Takes a block and returns at once; the block is run later, once, on whatever thread the
    /// application chooses. Called on any thread.
    using Submit = std::function<void(std::function<void()> block)>;

    /// The main queue, which runs in `dispatchMain`.
    CallbackQueue()
        : CallbackQueue(Queue::main())
    {
    }

    // NOLINTNEXTLINE(google-explicit-constructor): a queue is a place for callbacks as it stands
    CallbackQueue(Queue queue)
        : m_submit([queue = std::move(queue)](
                       std::function<void()> block) { queue.async(std::move(block)); })
    {
    }

    /// An event loop. Callbacks that have not run when the loop is destroyed never do.
    explicit CallbackQueue(const EventLoop& loop)
        : m_submit(loop.poster())
    {
    }

    explicit CallbackQueue(Submit submit)
        : m_submit(std::move(submit))
    {
    }

    void async(std::function<void()> block) const { m_submit(std::move(block)); }

private:
    Submit m_submit;
};

} // namespace tdw
