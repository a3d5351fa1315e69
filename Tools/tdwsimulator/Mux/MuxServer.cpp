#include "Mux/MuxServer.h"

#include "Mux/MuxConnection.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace tdw::simulator {

namespace {

/// A connection beyond this many that wait to be accepted gets EAGAIN.
constexpr int kQueueLength = 5;

} // namespace

MuxServer::MuxServer(asio::io_context& context, Simulation& simulation, PortConnector& ports,
    std::filesystem::path path)
    : m_context(context)
    , m_simulation(simulation)
    , m_ports(ports)
    , m_path(std::move(path))
    , m_listener(
          context, [this](asio::local::stream_protocol::socket socket) { take(std::move(socket)); })
{
    m_simulation.observe([this](const SimulationEvent& event) {
        if (event.kind == SimulationEvent::Kind::Attached)
            tryRecord(event.attachment);
        tellListeners(event);
    });
}

MuxServer::~MuxServer()
{
    close();
}

Result<void> MuxServer::open()
{
    if (m_listener.isOpen())
        return {};
    TDW_TRY(m_listener.open(m_path));
    // As the daemon has it: for all users, and with a queue of five.
    if (::chmod(m_path.c_str(), 0666) != 0
        || ::listen(m_listener.descriptor(), kQueueLength) != 0) {
        Error error = Error::posix(errno, "Cannot listen on " + m_path.string());
        m_listener.close();
        return error;
    }
    m_simulation.renumber();
    for (const Attachment& attachment : m_simulation.attachments())
        tryRecord(attachment);
    return {};
}

void MuxServer::close()
{
    if (!m_listener.isOpen())
        return;
    m_listener.close();
    for (const auto& [number, client] : std::exchange(m_clients, {})) {
        if (const auto channel = client.channel.lock())
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

void MuxServer::take(asio::local::stream_protocol::socket socket)
{
    std::erase_if(m_clients, [](const auto& entry) { return entry.second.channel.expired(); });
    const auto channel = Channel::create(std::move(socket));
    const auto number = ++m_lastClient;
    const auto connection = std::make_shared<MuxConnection>(m_simulation, m_ports, channel, number);
    m_clients.emplace(number, Client { channel, connection });
    channel->handOver(connection);
    channel->start();
    connection->applyAcceptFault();
}

void MuxServer::tryRecord(const Attachment& attachment)
{
    const SimulatedDevice& device = *attachment.device;
    if (attachment.type == ConnectionType::Usb && device.trust().trust() == Trust::ForgotHostInTls)
        m_simulation.pairRecords().remove(device.udid());
}

void MuxServer::tellListeners(const SimulationEvent& event)
{
    // Telling one may lose it, and with it its place here.
    const auto clients = m_clients;
    for (const auto& [number, client] : clients) {
        if (const auto connection = client.connection.lock())
            connection->notify(event);
    }
}

} // namespace tdw::simulator
