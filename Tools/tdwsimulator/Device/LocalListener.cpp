#include "Device/LocalListener.h"

#include "Platform/System/LocalSocket.h"

#include <asio/error.hpp>

#include <utility>

namespace tdw::simulator {

LocalListener::LocalListener(asio::io_context& context, Handler handler)
    : m_acceptor(context)
    , m_handler(std::move(handler))
{
}

Result<void> LocalListener::open(const std::filesystem::path& path)
{
    FileHandle socket = TDW_TRY(listenOnLocalSocket(path));
    std::error_code error;
    m_acceptor.assign(asio::local::stream_protocol(), socket.descriptor(), error);
    if (error)
        return Error::posix(error.value(), "Cannot listen on " + path.string());
    (void)socket.release();
    accept();
    return {};
}

void LocalListener::close()
{
    std::error_code error;
    m_acceptor.close(error);
}

void LocalListener::accept()
{
    m_acceptor.async_accept(
        [this](std::error_code error, asio::local::stream_protocol::socket socket) {
            if (error == asio::error::operation_aborted || !m_acceptor.is_open())
                return;
            if (!error)
                m_handler(std::move(socket));
            if (m_acceptor.is_open())
                accept();
        });
}

} // namespace tdw::simulator
