#include "Commands/Simulator.h"

namespace tdw::simulator {

/// Refuses every port.
class Simulator::ClosedGate final : public DeviceGate {
public:
    bool accepts(const Attachment&, std::uint16_t) const override { return false; }
    void connect(const std::shared_ptr<Channel>& channel, const Attachment&, std::uint16_t,
        std::span<const std::byte>) override
    {
        channel->close();
    }
};

Result<std::unique_ptr<Simulator>> Simulator::create(
    Scenario scenario, const std::filesystem::path& directory)
{
    std::unique_ptr<Simulator> simulator(new Simulator(std::move(scenario), directory));
    TDW_TRY(simulator->m_simulation.attachInitialDevices());
    TDW_TRY(simulator->m_control.open(simulator->controlSocket()));
    TDW_TRY(simulator->m_mux.followFaults());
    return simulator;
}

Simulator::Simulator(Scenario scenario, const std::filesystem::path& directory)
    : m_directory(directory)
    , m_context(1)
    , m_simulation(std::move(scenario))
    , m_gate(std::make_unique<ClosedGate>())
    , m_mux(m_context, m_simulation, *m_gate, muxSocket())
    , m_control(m_context, m_simulation,
          ControlProtocol(m_simulation, [this] { return m_mux.followFaults(); }))
{
}

Simulator::~Simulator() = default;

} // namespace tdw::simulator
