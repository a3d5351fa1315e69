#pragma once

#include "Device/DeviceGate.h"
#include "Model/Simulation.h"
#include "Platform/Values/Result.h"

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>

namespace tdw::simulator {

class MuxConnection;

/// The multiplexer's socket.
///
/// Used by the thread that runs the context; must not outlive simulation and gate.
class MuxServer {
public:
    MuxServer(asio::io_context& context, Simulation& simulation, DeviceGate& gate,
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
    friend class MuxConnection;

    void accept();
    void tellListeners(const SimulationEvent& event);

    /// What the daemon does with a device before it announces it: a session that ends in TLS costs
    /// the device its record.
    void greet(const Attachment& attachment);

    asio::io_context& m_context;
    Simulation& m_simulation;
    DeviceGate& m_gate;
    std::filesystem::path m_path;
    asio::local::stream_protocol::acceptor m_acceptor;
    std::map<std::uint64_t, std::weak_ptr<Channel>> m_channels;
    std::map<std::uint64_t, std::weak_ptr<MuxConnection>> m_listeners;
    std::uint64_t m_lastClient = 0;
};

} // namespace tdw::simulator
