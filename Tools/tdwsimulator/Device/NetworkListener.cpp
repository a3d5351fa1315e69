#include "Device/NetworkListener.h"

#include <asio/error.hpp>
#include <asio/ip/address_v4.hpp>

namespace tdw::simulator {

Result<std::shared_ptr<NetworkListener>> NetworkListener::open(
    asio::io_context& context, const std::string& address, std::uint16_t port, Handler handler)
{
    std::shared_ptr<NetworkListener> listener(new NetworkListener(context));
    listener->m_handler = std::move(handler);
    TDW_TRY(listener->listen(address, port));
    listener->accept();
    return listener;
}

Result<void> NetworkListener::listen(const std::string& address, std::uint16_t port)
{
    std::error_code error;
    const asio::ip::tcp::endpoint endpoint(asio::ip::make_address_v4(address, error), port);
    if (!error)
        m_acceptor.open(endpoint.protocol(), error);
    if (!error)
        m_acceptor.set_option(asio::socket_base::reuse_address(true), error);
    if (!error)
        m_acceptor.bind(endpoint, error);
    if (!error)
        m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
        return Error::posix(
            error.value(), "Cannot listen on " + address + ":" + std::to_string(port));
    }
    m_port = m_acceptor.local_endpoint(error).port();
    return {};
}

void NetworkListener::accept()
{
    m_acceptor.async_accept(
        [weak = weak_from_this()](std::error_code error, asio::ip::tcp::socket socket) {
            const auto self = weak.lock();
            if (!self || error == asio::error::operation_aborted || !self->m_acceptor.is_open())
                return;
            if (!error)
                self->m_handler(std::move(socket));
            if (self->m_acceptor.is_open())
                self->accept();
        });
}

void NetworkListener::close()
{
    std::error_code error;
    m_acceptor.close(error);
}

} // namespace tdw::simulator
