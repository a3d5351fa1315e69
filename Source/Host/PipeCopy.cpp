#include "Host/PipeCopy.h"

#include "Host/ChildServer.h"
#include "Platform/Queues/Queue.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <utility>

namespace tdw {

namespace {

/// Holds SIGPIPE back from the calling thread, and drops one that comes meanwhile: how the
/// application treats the signal is its own business.
class PipeSignalHold {
public:
    PipeSignalHold()
    {
        sigset_t pending;
        (void)::sigpending(&pending);
        m_wasPending = ::sigismember(&pending, SIGPIPE) == 1;
        ::sigemptyset(&m_signal);
        ::sigaddset(&m_signal, SIGPIPE);
        (void)::pthread_sigmask(SIG_BLOCK, &m_signal, &m_previous);
    }
    PipeSignalHold(const PipeSignalHold&) = delete;
    PipeSignalHold& operator=(const PipeSignalHold&) = delete;
    ~PipeSignalHold()
    {
        const timespec now {};
        if (!m_wasPending)
            while (::sigtimedwait(&m_signal, nullptr, &now) < 0 && errno == EINTR) { }
        (void)::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }

private:
    sigset_t m_signal {};
    sigset_t m_previous {};
    bool m_wasPending = false;
};

} // namespace

PipeCopy::PipeCopy(FileHandle writer)
    : m_writer(std::move(writer))
{
    if (m_writer.isOpen() && !makeNonBlocking(m_writer))
        m_writer.close();
}

void PipeCopy::add(EventLoop& loop, std::span<const std::byte> bytes)
{
    if (!m_writer.isOpen())
        return;
    const auto kept = bytes.first(std::min(bytes.size(), kBacklogLimit - rest().size()));
    m_bytes.insert(m_bytes.end(), kept.begin(), kept.end());
    flush();
    if (rest().empty() || m_source)
        return;
    if (auto source = loop.whenWritable(m_writer.descriptor(), [this] { flush(); }))
        m_source = *std::move(source);
}

void PipeCopy::flush()
{
    const PipeSignalHold hold;
    while (m_writer.isOpen() && !rest().empty()) {
        const ssize_t count = ::write(m_writer.descriptor(), rest().data(), rest().size());
        if (count > 0)
            m_written += static_cast<std::size_t>(count);
        else if (errno == EAGAIN)
            return;
        else if (errno != EINTR)
            close();
    }
    m_bytes.clear();
    m_written = 0;
    m_source = {};
}

void PipeCopy::close()
{
    m_source = {};
    m_writer.close();
}

Data PipeCopy::takeRest()
{
    close();
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_written));
    m_written = 0;
    return std::exchange(m_bytes, {});
}

void PipeCopy::passOnRest(PipeCopy copy)
{
    copy.stop();
    if (!copy.m_writer.isOpen() || copy.rest().empty())
        return;
    const auto shared = std::make_shared<PipeCopy>(std::move(copy));
    // The queue goes along, so that its last handle never makes its owner wait for the reader.
    const Queue queue = Queue::serial("TDWStandardError");
    queue.async([shared, queue] {
        while (shared->m_writer.isOpen() && !shared->rest().empty()) {
            pollfd entry { shared->m_writer.descriptor(), POLLOUT, 0 };
            (void)::poll(&entry, 1, -1);
            shared->flush();
        }
    });
}

} // namespace tdw
