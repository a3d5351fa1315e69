#pragma once

#include "Control/ControlServer.h"
#include "Device/DevicePorts.h"
#include "Model/Scenario.h"
#include "Model/Simulation.h"
#include "Mux/MuxServer.h"
#include "Platform/Values/Result.h"
#include "Usb/MuxDaemon.h"
#include "Usb/UsbBus.h"

#include <asio/io_context.hpp>

#include <filesystem>
#include <memory>
#include <optional>

namespace tdw::simulator {

/// A simulation with all its servers, in one directory and on one thread.
class Simulator {
public:
    /// Loads the simulator's keys and opens every socket; what the scenario attaches is attached
    /// then.
    /// @param directory exists and belongs to this user alone
    /// @param daemon the multiplexer daemon to put in front of the devices; none: the simulator is
    ///     the multiplexer itself
    static Result<std::unique_ptr<Simulator>> create(Scenario scenario,
        const std::filesystem::path& directory,
        const std::optional<std::filesystem::path>& daemon = std::nullopt);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    asio::io_context& context() { return m_context; }

    /// Waits until the daemon has announced every device on the bus, or for as long as a daemon
    /// takes that has one it cannot greet. Without a daemon there is nothing to wait for.
    /// Errors: the daemon has ended; what it wrote is in the message.
    Result<void> waitUntilAnnounced();

    std::filesystem::path muxSocket() const
    {
        return m_daemon ? m_daemon->socket() : m_directory / "usbmuxd";
    }
    std::filesystem::path controlSocket() const { return m_directory / "control"; }

private:
    Simulator(Scenario scenario, const std::filesystem::path& directory,
        const std::shared_ptr<const SimulatorKeys>& keys,
        const std::optional<std::filesystem::path>& daemon);

    SimulationEnvironment environment();

    Result<void> followFaults() { return m_daemon ? m_daemon->follow() : m_mux->followFaults(); }

    std::filesystem::path m_directory;
    asio::io_context m_context;
    Simulation m_simulation;
    DevicePorts m_ports;
    /// Either this multiplexer is there, or the daemon and its bus.
    std::unique_ptr<MuxServer> m_mux;
    std::unique_ptr<MuxDaemon> m_daemon;
    std::unique_ptr<UsbBus> m_bus;
    ControlServer m_control;
};

} // namespace tdw::simulator
