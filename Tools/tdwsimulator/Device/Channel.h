#pragma once

#include "Platform/Values/Data.h"

#include <asio/generic/stream_protocol.hpp>

#include <cstddef>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace tdw::simulator {

/// Local sockets and TCP sockets alike.
using StreamSocket = asio::generic::stream_protocol::socket;

/// What a channel does with the bytes that come in.
class ChannelHandler {
public:
    ChannelHandler() = default;
    ChannelHandler(const ChannelHandler&) = delete;
    ChannelHandler& operator=(const ChannelHandler&) = delete;
    virtual ~ChannelHandler() = default;

    virtual void received(std::span<const std::byte> bytes) = 0;

    /// The connection is gone, ended by either side. Called once.
    virtual void ended() { }
};

/// One connection: reads what comes and hands it to its handler, writes what is sent in order.
///
/// A handler can hand the connection over to another one, which is how a multiplexer's client
/// comes to talk to a device. Lives as long as its connection. Used by the simulator's one thread.
class Channel : public std::enable_shared_from_this<Channel> {
public:
    static std::shared_ptr<Channel> create(StreamSocket socket);

    /// Gives the connection to its first or to another handler, which receives `bytes` at once.
    void handOver(std::shared_ptr<ChannelHandler> handler, std::span<const std::byte> bytes = {});

    /// Begins to read, once there is a handler.
    void start() { read(); }

    /// Writes now what the system takes, and the rest when it takes more.
    void send(Data bytes);

    /// Ends the connection when all is written.
    void closeAfterSending();

    /// Ends the connection now.
    void close();

    bool isOpen() const { return m_socket.is_open(); }

    StreamSocket::executor_type executor() { return m_socket.get_executor(); }

private:
    explicit Channel(StreamSocket socket);

    void read();
    void write();

    StreamSocket m_socket;
    std::shared_ptr<ChannelHandler> m_handler;
    std::vector<std::byte> m_input;
    std::deque<Data> m_output;
    bool m_closesAfterSending = false;
};

} // namespace tdw::simulator
