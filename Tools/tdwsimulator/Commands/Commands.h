#pragma once

#include "Model/Scenario.h"
#include "Platform/System/AtomicFile.h"
#include "Platform/Values/Result.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tdw::simulator {

/// What `run` and `serve` simulate.
struct ScenarioOptions {
    /// None: the household.
    std::optional<std::string> file;
    /// None: as the scenario says.
    std::optional<AddressLayout> addressLayout;
    /// The multiplexer daemon before the devices.
    std::optional<std::filesystem::path> daemon;
};

/// Reads the scenario that the options name.
Result<Scenario> loadScenario(const ScenarioOptions& options);

/// Runs a command with simulated devices around it.
/// @return the command's own exit status, or 128 and the number of the signal that killed it
Result<int> runCommand(const ScenarioOptions& options, const std::vector<std::string>& command);

/// Serves until SIGINT or SIGTERM; says on standard output, in one line of JSON, where.
Result<int> serveCommand(const ScenarioOptions& options, const std::filesystem::path& directory);

/// Sends one request to a running simulator and prints its answer.
/// @param words the command and its `name=value` arguments, or one whole JSON object
/// @return 0, or 1 where the simulator refused
Result<int> controlCommand(
    const std::optional<std::string>& socket, const std::vector<std::string>& words);

/// What `record` reads, and where to.
struct RecordOptions {
    /// None, with `all`: every device that is connected.
    std::vector<std::string> udids;
    bool all = false;
    /// "-": standard output.
    std::string output;
    Overwrite overwrite = Overwrite::No;
    bool withWallpaper = false;
    /// For each step of the reading.
    unsigned timeoutSeconds = 10;
};

/// Reads real devices and writes a scenario that the simulator plays, without their secrets.
Result<int> recordCommand(const RecordOptions& options);

} // namespace tdw::simulator
