#include "Device/Channel.h"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>

#include <algorithm>

namespace tdw::simulator {

namespace {

constexpr std::size_t kReadSize = 32 * 1024;

} // namespace

std::shared_ptr<Channel> Channel::create(StreamSocket socket)
{
    return std::shared_ptr<Channel>(new Channel(std::move(socket)));
}

Channel::Channel(StreamSocket socket)
    : m_socket(std::move(socket))
    , m_input(kReadSize)
{
    std::error_code error;
    m_socket.non_blocking(true, error);
    // Fails on local sockets, which need no such thing.
    m_socket.set_option(asio::ip::tcp::no_delay(true), error);
}

void Channel::handOver(std::shared_ptr<ChannelHandler> handler, std::span<const std::byte> bytes)
{
    m_handler = handler;
    if (!bytes.empty())
        handler->received(bytes);
}

void Channel::send(Data bytes)
{
    if (!isOpen() || m_closesAfterSending || bytes.empty())
        return;
    if (m_output.empty()) {
        std::error_code error;
        const std::size_t written = m_socket.write_some(asio::buffer(bytes), error);
        if (error && error != asio::error::would_block && error != asio::error::try_again) {
            close();
            return;
        }
        if (written == bytes.size())
            return;
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(written));
    }
    m_output.push_back(std::move(bytes));
    if (m_output.size() == 1)
        write();
}

void Channel::closeAfterSending()
{
    m_closesAfterSending = true;
    if (m_output.empty())
        close();
}

void Channel::close()
{
    if (!isOpen())
        return;
    std::error_code error;
    m_socket.shutdown(StreamSocket::shutdown_both, error);
    m_socket.close(error);
    // The handler is told from the loop, never from inside a call it made itself.
    asio::post(executor(), [handler = std::move(m_handler)] {
        if (handler)
            handler->ended();
    });
}

void Channel::read()
{
    m_socket.async_read_some(asio::buffer(m_input),
        [self = shared_from_this()](std::error_code error, std::size_t count) {
            if (!self->isOpen())
                return;
            if (error) {
                self->close();
                return;
            }
            // Keeps a handler alive that hands its connection over or ends it.
            const std::shared_ptr<ChannelHandler> handler = self->m_handler;
            handler->received(std::span(self->m_input).first(count));
            if (self->isOpen())
                self->read();
        });
}

void Channel::write()
{
    asio::async_write(m_socket, asio::buffer(m_output.front()),
        [self = shared_from_this()](std::error_code error, std::size_t) {
            if (!self->isOpen())
                return;
            if (error) {
                self->close();
                return;
            }
            self->m_output.pop_front();
            if (!self->m_output.empty())
                self->write();
            else if (self->m_closesAfterSending)
                self->close();
        });
}

} // namespace tdw::simulator
