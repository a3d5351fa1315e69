#pragma once

#include "Device/Channel.h"
#include "Platform/Values/Result.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tdw::simulator {

/// A TCP port on a loopback address. Stops listening with the end of its life.
class NetworkListener : public std::enable_shared_from_this<NetworkListener> {
public:
    using Handler = std::function<void(StreamSocket)>;

    /// @param port 0 for one that is free
    /// Errors: `kPosixErrorDomain`, naming address and port.
    static Result<std::shared_ptr<NetworkListener>> open(
        asio::io_context& context, const std::string& address, std::uint16_t port, Handler handler);

    std::uint16_t port() const { return m_port; }

    void close();

private:
    explicit NetworkListener(asio::io_context& context)
        : m_acceptor(context)
    {
    }

    Result<void> listen(const std::string& address, std::uint16_t port);
    void accept();

    asio::ip::tcp::acceptor m_acceptor;
    Handler m_handler;
    std::uint16_t m_port = 0;
};

} // namespace tdw::simulator
