#include "Platform/Messages/Listener.h"

#include "Platform/Queues/WorkerPool.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/System/Log.h"
#include "Platform/System/Trust.h"

#include <asio/error.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>

#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <utility>

namespace tdw {

namespace {

using asio::local::stream_protocol;
using namespace std::chrono_literals;

/// After the process has run out of something, before it tries again: a connection that waits keeps
/// the socket readable all the time.
constexpr auto kExhaustionPause = 100ms;

Result<std::string> randomName()
{
    std::array<unsigned char, 16> bytes {};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return Error::posix(errno, "Cannot make up a random name");
    std::string name;
    for (const unsigned char byte : bytes) {
        std::array<char, 3> digits {};
        (void)std::snprintf(digits.data(), digits.size(), "%02x", byte);
        name += digits.data();
    }
    return name;
}

} // namespace

class Listener::Core : public std::enable_shared_from_this<Listener::Core> {
public:
    Core(const Queue& queue, const Log& log, Handler handler)
        : m_queue(queue)
        , m_pool(workerPool(m_queue))
        , m_acceptor(m_pool.context())
        , m_retryTimer(m_pool.context())
        , m_handler(std::move(handler))
        , m_log(log)
    {
    }

    Result<void> open(FileHandle socket)
    {
        std::error_code error;
        m_acceptor.assign(stream_protocol(), socket.descriptor(), error);
        if (!error) {
            (void)socket.release();
            m_acceptor.non_blocking(true, error);
        }
        if (error)
            return Error::posix(error.value(), "Cannot listen for connections");
        m_pool.beginWait();
        wait();
        return {};
    }

    void stop()
    {
        acceptAll();
        close();
    }

    void close()
    {
        if (!m_acceptor.is_open())
            return;
        std::error_code ignored;
        m_acceptor.close(ignored);
        m_retryTimer.cancel();
        m_pool.endWait();
    }

    const Queue& queue() const { return m_queue; }

private:
    void wait()
    {
        m_acceptor.async_wait(stream_protocol::acceptor::wait_read,
            [self = shared_from_this()](std::error_code error) {
                if (!error)
                    self->m_pool.perform([&self] { self->acceptAndWait(); });
            });
    }

    void acceptAndWait()
    {
        const bool isExhausted = !acceptAll();
        if (!m_acceptor.is_open())
            return;
        if (!isExhausted)
            return wait();
        m_retryTimer.expires_after(kExhaustionPause);
        m_retryTimer.async_wait([self = shared_from_this()](std::error_code error) {
            if (!error)
                self->wait();
        });
    }

    /// False where the system has no descriptor or memory left for the next one.
    bool acceptAll()
    {
        while (m_acceptor.is_open()) {
            FileHandle socket(::accept4(
                m_acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (!socket.isOpen() && (errno == EINTR || errno == ECONNABORTED))
                continue;
            if (!socket.isOpen())
                return errno == EAGAIN || errno == EWOULDBLOCK;
            if (const auto trusted = verifyPeer(socket.descriptor()); trusted)
                m_handler(std::move(socket));
            else
                m_log.error("Refused a connection: " + trusted.error().failureReason());
        }
        return true;
    }

    // The queue goes last, because the socket lives in its context.
    const Queue m_queue;
    WorkerPool& m_pool;
    stream_protocol::acceptor m_acceptor;
    asio::steady_timer m_retryTimer;
    const Handler m_handler;
    const Log m_log;
};

Result<Listener> Listener::create(
    const std::filesystem::path& path, const Queue& queue, const Log& log, Handler handler)
{
    FileHandle socket = TDW_TRY(listenOnLocalSocket(path));
    Listener listener(std::make_shared<Core>(queue, log, std::move(handler)), path);
    TDW_TRY(listener.m_core->open(std::move(socket)));
    return listener;
}

Result<Listener> Listener::createPrivate(
    const std::filesystem::path& directory, const Queue& queue, const Log& log, Handler handler)
{
    return create(directory / (TDW_TRY(randomName()) + ".sock"), queue, log, std::move(handler));
}

Result<Listener> Listener::adopt(
    FileHandle socket, const Queue& queue, const Log& log, Handler handler)
{
    Listener listener(std::make_shared<Core>(queue, log, std::move(handler)), {});
    TDW_TRY(listener.m_core->open(std::move(socket)));
    return listener;
}

Listener::Listener(std::shared_ptr<Core> core, std::filesystem::path path)
    : m_core(std::move(core))
    , m_path(std::move(path))
{
    struct stat status { };
    if (!m_path.empty() && ::lstat(m_path.c_str(), &status) == 0)
        m_inode = status.st_ino;
}

Listener::Listener(Listener&& other) noexcept
    : m_core(std::exchange(other.m_core, nullptr))
    , m_path(std::exchange(other.m_path, {}))
    , m_inode(other.m_inode)
{
}

Listener& Listener::operator=(Listener&& other) noexcept
{
    std::swap(m_core, other.m_core);
    std::swap(m_path, other.m_path);
    std::swap(m_inode, other.m_inode);
    return *this;
}

Listener::~Listener()
{
    if (!m_core)
        return;
    removeName();
    m_core->queue().async([core = m_core] { core->close(); });
}

void Listener::stop()
{
    removeName();
    m_core->stop();
}

bool Listener::canBeFound() const
{
    struct stat status { };
    return !m_path.empty() && ::lstat(m_path.c_str(), &status) == 0 && status.st_ino == m_inode;
}

void Listener::removeName()
{
    // Another listener may have the name by now.
    if (canBeFound())
        (void)::unlink(m_path.c_str());
    m_path.clear();
}

} // namespace tdw
