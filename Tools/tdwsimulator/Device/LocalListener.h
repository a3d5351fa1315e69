#pragma once

#include "Platform/Values/Result.h"

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>

#include <filesystem>
#include <functional>

namespace tdw::simulator {

/// Accepts the connections to a local socket. Used by the thread that runs the context.
class LocalListener {
public:
    using Handler = std::function<void(asio::local::stream_protocol::socket)>;

    /// @param handler takes each connection
    LocalListener(asio::io_context& context, Handler handler);

    /// Makes the socket and listens. Errors name the path.
    Result<void> open(const std::filesystem::path& path);

    bool isOpen() const { return m_acceptor.is_open(); }

    /// The listening socket; belongs to this object.
    int descriptor() { return m_acceptor.native_handle(); }

    /// The socket's file stays.
    void close();

private:
    void accept();

    asio::local::stream_protocol::acceptor m_acceptor;
    Handler m_handler;
};

} // namespace tdw::simulator
