#include "Events/CallbackLoop.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <deque>
#include <mutex>
#include <utility>

namespace tdw::cli {

struct CallbackLoop::State {
    FileHandle descriptor;
    std::mutex mutex {};
    std::deque<std::function<void()>> callbacks {};
    bool isClosed = false;
};

Result<CallbackLoop> CallbackLoop::create()
{
    FileHandle descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!descriptor.isOpen())
        return Error::posix(errno, "Cannot wait for callbacks");
    auto state = std::make_shared<State>();
    state->descriptor = std::move(descriptor);
    return CallbackLoop(std::move(state));
}

int CallbackLoop::descriptor() const
{
    return m_state->descriptor.descriptor();
}

void CallbackLoop::add(std::function<void()> callback) const
{
    {
        const std::lock_guard lock(m_state->mutex);
        if (m_state->isClosed)
            return;
        m_state->callbacks.push_back(std::move(callback));
    }
    (void)eventfd_write(descriptor(), 1);
}

void CallbackLoop::close() const
{
    std::deque<std::function<void()>> callbacks;
    const std::lock_guard lock(m_state->mutex);
    m_state->isClosed = true;
    callbacks.swap(m_state->callbacks);
}

CallbackQueue CallbackLoop::queue() const
{
    return CallbackQueue(
        [loop = *this](std::function<void()> callback) { loop.add(std::move(callback)); });
}

void CallbackLoop::run() const
{
    eventfd_t ignored = 0;
    (void)eventfd_read(descriptor(), &ignored);
    std::deque<std::function<void()>> callbacks;
    {
        const std::lock_guard lock(m_state->mutex);
        callbacks.swap(m_state->callbacks);
    }
    for (const auto& callback : callbacks)
        callback();
}

} // namespace tdw::cli
