#pragma once

#include "Model/Scenario.h"
#include "Platform/Values/Result.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tdw::simulator {

/// What `run` and `serve` simulate.
struct ScenarioOptions {
    std::optional<std::string> file; ///< none: the household
    std::optional<AddressLayout> addressLayout; ///< none: as the scenario says
    std::optional<std::filesystem::path> daemon; ///< the multiplexer daemon before the devices
};

/// Reads the scenario that the options name.
Result<Scenario> loadScenario(const ScenarioOptions& options);

/// Runs a command with simulated devices around it.
/// @returns the command's own exit status, or 128 and the number of the signal that killed it
Result<int> runCommand(const ScenarioOptions& options, const std::vector<std::string>& command);

/// Serves until SIGINT or SIGTERM; says on standard output, in one line of JSON, where.
Result<int> serveCommand(const ScenarioOptions& options, const std::filesystem::path& directory);

/// Sends one request to a running simulator and prints its answer.
/// @param words the command and its `name=value` arguments, or one whole JSON object
/// @returns 0, or 1 where the simulator refused
Result<int> controlCommand(
    const std::optional<std::string>& socket, const std::vector<std::string>& words);

} // namespace tdw::simulator
