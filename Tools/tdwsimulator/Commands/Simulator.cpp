#include "Commands/Simulator.h"

#include "Commands/DataDirectory.h"

namespace tdw::simulator {

Result<std::unique_ptr<Simulator>> Simulator::create(
    Scenario scenario, const std::filesystem::path& directory)
{
    const std::filesystem::path data = TDW_TRY(dataDirectory());
    const auto keys = TDW_TRY(SimulatorKeys::load(data / "keys"));
    std::unique_ptr<Simulator> simulator(new Simulator(std::move(scenario), directory, keys));
    TDW_TRY(simulator->m_simulation.attachInitialDevices());
    TDW_TRY(simulator->m_control.open(simulator->controlSocket()));
    TDW_TRY(simulator->m_mux.followFaults());
    return simulator;
}

Simulator::Simulator(Scenario scenario, const std::filesystem::path& directory,
    const std::shared_ptr<const SimulatorKeys>& keys)
    : m_directory(directory)
    , m_context(1)
    , m_simulation(std::move(scenario), keys)
    , m_ports(m_context, m_simulation)
    , m_mux(m_context, m_simulation, m_ports, muxSocket())
    , m_control(m_context, m_simulation,
          ControlProtocol(m_simulation, [this] { return m_mux.followFaults(); }))
{
}

Simulator::~Simulator() = default;

} // namespace tdw::simulator
