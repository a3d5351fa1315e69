#pragma once

#include "Platform/CallbackQueue.h"
#include "Platform/FileHandle.h"
#include "Platform/Result.h"

#include <functional>
#include <memory>

namespace tdw::cli {

/// Callbacks of other threads, for a thread that waits for descriptors: a handle, whose copies all
/// mean the same callbacks.
class CallbackLoop {
public:
    /// Errors: `kPosixErrorDomain`
    static Result<CallbackLoop> create();

    /// Polls readable while there are callbacks.
    int descriptor() const;

    /// Takes a callback; for any thread.
    void add(std::function<void()> callback) const;

    /// Where a client is to send its callbacks.
    CallbackQueue queue() const;

    /// Runs what is there.
    void run() const;

    /// Forgets what is there and whatever still comes: callbacks hold clients, and clients hold the
    /// loop, so that those that never run would keep both.
    void close() const;

private:
    struct State;
    explicit CallbackLoop(std::shared_ptr<State> state)
        : m_state(std::move(state))
    {
    }

    std::shared_ptr<State> m_state;
};

} // namespace tdw::cli
