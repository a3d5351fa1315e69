#pragma once

#include "Control/ControlServer.h"
#include "Device/DevicePorts.h"
#include "Model/Scenario.h"
#include "Model/Simulation.h"
#include "Mux/MuxServer.h"
#include "Platform/Result.h"

#include <asio/io_context.hpp>

#include <filesystem>
#include <memory>

namespace tdw::simulator {

/// A simulation with all its servers, in one directory and on one thread.
class Simulator {
public:
    /// Loads the simulator's keys and opens every socket; what the scenario attaches is attached
    /// then.
    /// @param directory exists and belongs to this user alone
    static Result<std::unique_ptr<Simulator>> create(
        Scenario scenario, const std::filesystem::path& directory);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    asio::io_context& context() { return m_context; }

    std::filesystem::path muxSocket() const { return m_directory / "usbmuxd"; }
    std::filesystem::path controlSocket() const { return m_directory / "control"; }

private:
    Simulator(Scenario scenario, const std::filesystem::path& directory,
        const std::shared_ptr<const SimulatorKeys>& keys);

    std::filesystem::path m_directory;
    asio::io_context m_context;
    Simulation m_simulation;
    DevicePorts m_ports;
    MuxServer m_mux;
    ControlServer m_control;
};

} // namespace tdw::simulator
