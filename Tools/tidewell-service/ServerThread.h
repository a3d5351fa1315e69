#pragma once

#include "Host/RequestRunner.h"
#include "Platform/Queues/EventLoop.h"
#include "Platform/Queues/Queue.h"
#include "Platform/Values/Result.h"

#include <functional>
#include <memory>
#include <optional>

namespace tdw::service {

/// The one thread on which all servers are run, with its event loop.
///
/// The functions may be called on any thread. Every stream has ended before this goes.
class ServerThread {
public:
    /// Errors: `kPosixErrorDomain`; the system has no descriptor left for it.
    static Result<std::shared_ptr<ServerThread>> create();

    explicit ServerThread(EventLoop loop);
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;
    ~ServerThread();

    /// For `post`, and on the thread itself for everything else.
    EventLoop& loop() { return m_loop; }

    /// @param completion runs on the thread; not for long
    void start(ServerRunOptions options, RequestRunner::Completion completion);

    /// Kills the requests that run; their completions come before `done`, on the thread.
    void endRequests(std::function<void()> done);

private:
    EventLoop m_loop;
    std::optional<RequestRunner> m_runner; // belongs to the thread; none once they are ended
    Queue m_thread;
};

} // namespace tdw::service
