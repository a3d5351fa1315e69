#include "Mux/MuxServer.h"

#include "Mux/MuxConnection.h"
#include "Platform/LocalSocket.h"

#include <asio/error.hpp>

#include <utility>

namespace tdw::simulator {

MuxServer::MuxServer(
    asio::io_context& context, Simulation& simulation, DeviceGate& gate, std::filesystem::path path)
    : m_context(context)
    , m_simulation(simulation)
    , m_gate(gate)
    , m_path(std::move(path))
    , m_acceptor(context)
{
    m_simulation.observe([this](const SimulationEvent& event) { tellListeners(event); });
}

MuxServer::~MuxServer()
{
    close();
}

Result<void> MuxServer::open()
{
    if (m_acceptor.is_open())
        return {};
    FileHandle socket = TDW_TRY(listenOnLocalSocket(m_path));
    std::error_code error;
    m_acceptor.assign(asio::local::stream_protocol(), socket.descriptor(), error);
    if (error)
        return Error::posix(error.value(), "Cannot listen on " + m_path.string());
    (void)socket.release();
    accept();
    return {};
}

void MuxServer::close()
{
    if (!m_acceptor.is_open())
        return;
    std::error_code error;
    m_acceptor.close(error);
    std::filesystem::remove(m_path, error);
    for (const auto& [number, weak] : std::exchange(m_channels, {})) {
        if (const auto channel = weak.lock())
            channel->close();
    }
}

Result<void> MuxServer::followFaults()
{
    if (!m_simulation.faults().contains(FaultKind::Absent, kMuxPlace))
        return open();
    close();
    return {};
}

void MuxServer::accept()
{
    m_acceptor.async_accept(
        [this](std::error_code error, asio::local::stream_protocol::socket socket) {
            if (error == asio::error::operation_aborted || !m_acceptor.is_open())
                return;
            if (!error) {
                std::erase_if(m_channels, [](const auto& entry) { return entry.second.expired(); });
                const auto channel = Channel::create(std::move(socket));
                const auto number = ++m_lastClient;
                m_channels.emplace(number, channel);
                const auto connection = std::make_shared<MuxConnection>(*this, channel, number);
                channel->handOver(connection);
                channel->start();
                connection->greet();
            }
            accept();
        });
}

void MuxServer::tellListeners(const SimulationEvent& event)
{
    // Telling one may lose it, and with it its place here.
    const auto listeners = m_listeners;
    for (const auto& [number, weak] : listeners) {
        if (const auto listener = weak.lock())
            listener->notify(event);
    }
}

} // namespace tdw::simulator
