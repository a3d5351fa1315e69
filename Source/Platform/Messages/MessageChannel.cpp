#include "Platform/Messages/MessageChannel.h"

#include "Platform/Queues/WorkerPool.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <utility>

namespace tdw {

using asio::local::stream_protocol;

Result<std::shared_ptr<MessageChannel>> MessageChannel::create(
    FileHandle socket, Queue queue, Handlers handlers)
{
    stream_protocol::socket asioSocket(workerPool(queue).context());
    std::error_code error;
    asioSocket.assign(stream_protocol(), socket.descriptor(), error);
    if (error)
        return Error::posix(error.value(), "Cannot watch a connection");
    (void)socket.release();
    return std::shared_ptr<MessageChannel>(
        new MessageChannel(std::move(queue), std::move(asioSocket), std::move(handlers)));
}

MessageChannel::MessageChannel(Queue queue, stream_protocol::socket socket, Handlers handlers)
    : m_queue(std::move(queue))
    , m_pool(workerPool(m_queue))
    , m_socket(std::move(socket))
    , m_handlers(std::move(handlers))
{
    m_pool.beginWait();
}

void MessageChannel::start()
{
    assert(m_queue.isCurrent());
    waitForInput();
}

bool MessageChannel::isHeldUp() const
{
    return m_unanswered >= kMaximumUnanswered || m_backlog > kPausingBacklog;
}

void MessageChannel::waitForInput()
{
    if (m_isClosed || m_waitsForInput || isHeldUp())
        return;
    m_waitsForInput = true;
    m_socket.async_wait(
        stream_protocol::socket::wait_read, [self = shared_from_this()](std::error_code) {
            self->m_pool.perform([&self] {
                self->m_waitsForInput = false;
                self->readable();
            });
        });
}

void MessageChannel::readable()
{
    if (m_isClosed)
        return;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): only what was read is looked at
    std::array<std::byte, std::size_t { 64 } * 1024> chunk;
    const ssize_t count
        = ::recv(m_socket.native_handle(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    const int code = count < 0 ? errno : 0;
    m_isReset = m_isReset || code == ECONNRESET;
    if (count == 0 || code == ECONNRESET)
        return end(Error::posix(
            m_isReset ? ECONNRESET : EPIPE, "The other end of the connection is gone"));
    if (code != 0 && code != EAGAIN && code != EINTR)
        return end(Error::posix(code, "Cannot read from the connection"));
    m_decoder.append(std::span(chunk).first(static_cast<std::size_t>(std::max<ssize_t>(count, 0))));
    handleInput();
}

void MessageChannel::handleInput()
{
    // A handler that answers at once comes back here through `answered`.
    if (m_handlesInput)
        return;
    m_handlesInput = true;
    while (!m_isClosed && !isHeldUp()) {
        const auto payload = m_decoder.next();
        if (!payload) {
            end(payload.error());
            break;
        }
        if (!*payload)
            break;
        handle(**payload);
    }
    m_handlesInput = false;
    waitForInput();
}

void MessageChannel::handle(std::span<const std::byte> payload)
{
    auto decoded = decodeMessage(payload);
    if (!decoded)
        return end(decoded.error());
    if (auto* reply = std::get_if<Reply>(&*decoded)) {
        m_handlers.reply(std::move(*reply));
        return;
    }
    auto& message = std::get<Message>(*decoded);
    if (message.identifier != 0)
        ++m_unanswered;
    m_handlers.message(std::move(message));
}

void MessageChannel::answered()
{
    assert(m_queue.isCurrent());
    assert(m_unanswered > 0);
    --m_unanswered;
    handleInput();
}

void MessageChannel::send(Data frame, std::uint64_t identifier)
{
    assert(m_queue.isCurrent());
    if (m_isClosed)
        return;
    const bool isFull = m_backlog > kMaximumBacklog;
    m_backlog += m_canWrite ? frame.size() : 0;
    m_output.push_back({ std::move(frame), identifier });
    if (isFull)
        end(Error::posix(ENOBUFS, "The other end of the connection does not fetch what it asked"));
    else
        write();
}

void MessageChannel::write()
{
    while (!m_isClosed && m_canWrite && !m_waitsForRoom && !m_output.empty()) {
        const OutgoingFrame& first = m_output.front();
        const ssize_t count = ::send(m_socket.native_handle(), first.bytes.data() + m_firstWritten,
            first.bytes.size() - m_firstWritten, MSG_DONTWAIT | MSG_NOSIGNAL);
        const int code = count < 0 ? errno : 0;
        if (code == EAGAIN)
            return waitForRoom();
        if (code != 0 && code != EINTR) {
            m_isReset = m_isReset || code == ECONNRESET;
            return giveUpWriting();
        }
        const auto written = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        m_firstWritten += written;
        m_backlog -= written;
        if (written > 0)
            m_lastWritten = first.identifier;
        if (m_firstWritten == first.bytes.size()) {
            m_output.pop_front();
            m_firstWritten = 0;
        }
    }
}

void MessageChannel::waitForRoom()
{
    m_waitsForRoom = true;
    m_socket.async_wait(
        stream_protocol::socket::wait_write, [self = shared_from_this()](std::error_code) {
            self->m_pool.perform([&self] {
                self->m_waitsForRoom = false;
                self->write();
                self->handleInput();
            });
        });
}

/// The other end has gone, but what it wrote before may still be there to be read. Behind it comes
/// the end, which is reported as such.
void MessageChannel::giveUpWriting()
{
    m_canWrite = false;
    m_backlog = 0;
    waitForInput();
}

void MessageChannel::end(const Error& error)
{
    if (m_isClosed)
        return;
    std::vector<std::uint64_t> unread;
    for (const OutgoingFrame& frame : m_output)
        unread.push_back(frame.identifier);
    // Frames are read in order: where something was left over, the last one was.
    if (m_isReset)
        unread.push_back(m_lastWritten);
    // Called last: the handler may destroy the handlers and this channel.
    const auto ended = m_handlers.ended;
    close();
    ended(error, unread);
}

void MessageChannel::close()
{
    assert(m_queue.isCurrent());
    if (m_isClosed)
        return;
    m_isClosed = true;
    std::error_code ignored;
    m_socket.close(ignored);
    m_pool.endWait();
    m_output.clear();
    m_backlog = 0;
}

} // namespace tdw
