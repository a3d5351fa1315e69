#include "ServerThread.h"

#include <utility>

namespace tdw::service {

Result<std::shared_ptr<ServerThread>> ServerThread::create()
{
    return std::make_shared<ServerThread>(TDW_TRY(EventLoop::create()));
}

ServerThread::ServerThread(EventLoop loop)
    : m_loop(std::move(loop))
    , m_runner(std::in_place, m_loop)
    , m_thread(Queue::serial("TDWServers"))
{
    m_thread.async([this] { m_loop.run(); });
}

ServerThread::~ServerThread()
{
    // The queue, which goes first, waits for that.
    endRequests([this] { m_loop.stop(); });
}

void ServerThread::start(ServerRunOptions options, RequestRunner::Completion completion)
{
    // Work is copied with its function, so what is unique is moved through.
    const auto shared = std::make_shared<ServerRunOptions>(std::move(options));
    m_loop.post([this, shared, completion = std::move(completion)] {
        if (m_runner)
            m_runner->start(std::move(*shared), completion);
    });
}

void ServerThread::endRequests(std::function<void()> done)
{
    m_loop.post([this, done = std::move(done)] {
        m_runner.reset();
        done();
    });
}

} // namespace tdw::service
