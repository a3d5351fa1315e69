#include "Commands/Commands.h"
#include "Commands/DataDirectory.h"
#include "Commands/Simulator.h"
#include "Model/SimulatorError.h"
#include "Platform/System/FileHandle.h"

#include <asio/signal_set.hpp>

#include <unistd.h>

#include <csignal>

namespace tdw::simulator {

namespace {

Result<void> announce(const Simulator& simulator, const std::filesystem::path& directory)
{
    const Json line { { "directory", directory.string() },
        { "mux", simulator.muxSocket().string() },
        { "control", simulator.controlSocket().string() } };
    const std::string text = jsonText(line) + "\n";
    return writeToDescriptor(STDOUT_FILENO, std::as_bytes(std::span(text)));
}

} // namespace

Result<Scenario> loadScenario(const ScenarioOptions& options)
{
    std::filesystem::path file;
    if (options.file)
        file = *options.file;
    else
        file = TDW_TRY(dataDirectory()) / "scenarios" / "household.json";
    Scenario scenario = TDW_TRY(loadScenario(file));
    if (options.addressLayout)
        scenario.addressLayout = *options.addressLayout;
    return scenario;
}

Result<int> serveCommand(const ScenarioOptions& options, const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        return Error::posix(error.value(), "Cannot create " + directory.string());
    const auto absolute = std::filesystem::absolute(directory, error);
    const Scenario scenario = TDW_TRY(loadScenario(options));
    auto simulator = TDW_TRY(Simulator::create(scenario, absolute, options.daemon));
    TDW_TRY(simulator->waitUntilAnnounced());
    asio::signal_set signals(simulator->context());
    signals.add(SIGINT, error);
    signals.add(SIGTERM, error);
    signals.async_wait([&](std::error_code, int) { simulator->context().stop(); });
    TDW_TRY(announce(*simulator, absolute));
    simulator->context().run();
    std::filesystem::remove(simulator->controlSocket(), error);
    return 0;
}

} // namespace tdw::simulator
