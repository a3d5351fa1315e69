#include "Commands/Simulator.h"

#include "Commands/DataDirectory.h"
#include "Model/SimulatorError.h"

#include <asio/steady_timer.hpp>

#include <algorithm>

namespace tdw::simulator {

namespace {

constexpr std::chrono::seconds kAnnouncementBound { 5 };

} // namespace

Result<std::unique_ptr<Simulator>> Simulator::create(Scenario scenario,
    const std::filesystem::path& directory, const std::optional<std::filesystem::path>& daemon)
{
    const std::filesystem::path data = TDW_TRY(dataDirectory());
    const auto keys = TDW_TRY(SimulatorKeys::load(data / "keys"));
    std::unique_ptr<Simulator> simulator(
        new Simulator(std::move(scenario), directory, keys, daemon));
    TDW_TRY(simulator->m_control.open(simulator->controlSocket()));
    if (simulator->m_bus)
        TDW_TRY(simulator->m_bus->open(directory / "usb"));
    TDW_TRY(simulator->m_simulation.attachInitialDevices());
    TDW_TRY(simulator->followFaults());
    return simulator;
}

Simulator::Simulator(Scenario scenario, const std::filesystem::path& directory,
    const std::shared_ptr<const SimulatorKeys>& keys,
    const std::optional<std::filesystem::path>& daemon)
    : m_directory(directory)
    , m_context(1)
    , m_simulation(std::move(scenario), keys, directory / "lib" / "lockdown", environment())
    , m_ports(m_context, m_simulation)
    , m_control(
          m_context, m_simulation, ControlProtocol(m_simulation, [this] { return followFaults(); }))
{
    if (!daemon) {
        m_mux = std::make_unique<MuxServer>(m_context, m_simulation, m_ports, muxSocket());
        return;
    }
    m_daemon = std::make_unique<MuxDaemon>(m_context, m_simulation, directory, *daemon);
    m_bus = std::make_unique<UsbBus>(
        m_context, m_simulation, m_ports, [this] { m_daemon->listen(); });
}

Simulator::~Simulator() = default;

SimulationEnvironment Simulator::environment()
{
    return {
        .openNetwork
        = [this](const SimulatedDevice& device) { return m_ports.openNetwork(device); },
        .later =
            [this](std::chrono::milliseconds delay, std::function<void()> action) {
                auto timer = std::make_shared<asio::steady_timer>(m_context, delay);
                timer->async_wait([timer, action = std::move(action)](std::error_code error) {
                    if (!error)
                        action();
                });
            },
    };
}

Result<void> Simulator::waitUntilAnnounced()
{
    const auto count = static_cast<std::uint64_t>(
        std::ranges::count(m_simulation.attachments(), ConnectionType::Usb, &Attachment::type));
    if (!m_daemon || count == 0)
        return {};
    asio::steady_timer bound(m_context, kAnnouncementBound);
    bound.async_wait([this](std::error_code error) {
        if (!error)
            m_context.stop();
    });
    const auto stopUpon = [this](std::string_view request, std::uint64_t occurrences) {
        LogFilter filter;
        filter.at = kDaemonPlace;
        filter.request = request;
        return m_simulation.log().wait(
            filter, occurrences, [this](const LogEntry&) { m_context.stop(); });
    };
    const auto announced = stopUpon("Attached", count);
    const auto ended = stopUpon("Ended", 1);
    m_context.run();
    m_simulation.log().giveUp(announced);
    m_simulation.log().giveUp(ended);
    m_context.restart();
    if (!m_daemon->isRunning())
        return simulatorError("the multiplexer daemon has ended: " + m_daemon->messages());
    return {};
}

} // namespace tdw::simulator
