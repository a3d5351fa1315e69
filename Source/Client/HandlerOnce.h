#pragma once

#include "Platform/Queues/CallbackQueue.h"

#include <functional>
#include <memory>
#include <utility>

namespace tdw {

/// Gives up what an application handed over on its callback queue.
template <typename T>
void destroyOn(const CallbackQueue& queue, T value)
{
    queue.async([held = std::move(value)] {});
}

/// A handler of the application that is called once: a handle, whose copies all mean the same call.
///
/// The handler is called on the callback queue, and destroyed there with everything it holds, also
/// where it is never called. The first call counts. A null handler costs nothing. An exception that
/// leaves the handler ends the process where it was thrown.
///
/// Calls must not happen on two threads at once.
template <typename... Arguments>
class HandlerOnce {
public:
    using Function = std::function<void(const Arguments&...)>;

    HandlerOnce(CallbackQueue queue, Function function)
    {
        if (function)
            m_state = std::make_shared<State>(std::move(queue), std::move(function));
    }

    void operator()(const Arguments&... arguments) const
    {
        if (!m_state || !m_state->function)
            return;
        m_state->queue.async([function = std::exchange(m_state->function, nullptr),
                                 arguments...]() noexcept { function(arguments...); });
    }

private:
    struct State {
        State(CallbackQueue callbackQueue, Function handler)
            : queue(std::move(callbackQueue))
            , function(std::move(handler))
        {
        }
        State(const State&) = delete;
        State& operator=(const State&) = delete;
        ~State()
        {
            if (function)
                destroyOn(queue, std::move(function));
        }
        CallbackQueue queue;
        Function function;
    };

    std::shared_ptr<State> m_state;
};

} // namespace tdw
