#pragma once

#include "Device/LocalListener.h"
#include "Device/PortConnector.h"
#include "Model/Simulation.h"
#include "Platform/Values/Result.h"

#include <asio/io_context.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>

namespace tdw::simulator {

class MuxConnection;

/// The multiplexer's socket.
///
/// Used by the thread that runs the context; must not outlive simulation and ports.
class MuxServer {
public:
    MuxServer(asio::io_context& context, Simulation& simulation, PortConnector& ports,
        std::filesystem::path path);
    MuxServer(const MuxServer&) = delete;
    MuxServer& operator=(const MuxServer&) = delete;
    ~MuxServer();

    /// Listens; nothing happens where it does already. Errors name the path.
    Result<void> open();

    /// Goes away as a daemon does that ends: every client of the multiplexer, connected to a device
    /// or not, loses its connection. The socket's file stays.
    void close();

    /// Opens or closes, according to whether an `Absent` fault is in force.
    Result<void> followFaults();

private:
    /// A client of the multiplexer until its connection ends; the second as long as it is not
    /// handed over to a device.
    struct Client {
        std::weak_ptr<Channel> channel;
        std::weak_ptr<MuxConnection> connection;
    };

    void take(asio::local::stream_protocol::socket socket);
    void tellListeners(const SimulationEvent& event);

    /// What the daemon does with a device before it announces it: a session that ends in TLS costs
    /// the device its record.
    void tryRecord(const Attachment& attachment);

    asio::io_context& m_context;
    Simulation& m_simulation;
    PortConnector& m_ports;
    std::filesystem::path m_path;
    LocalListener m_listener;
    std::map<std::uint64_t, Client> m_clients;
    std::uint64_t m_lastClient = 0;
};

} // namespace tdw::simulator
