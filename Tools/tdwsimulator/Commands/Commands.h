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

/// What `record` reads, and where to.
struct RecordOptions {
    std::vector<std::string> udids; ///< none, with `all`: every device that is connected
    bool all = false;
    std::string output; ///< "-": standard output
    Overwrite overwrite = Overwrite::No;
    bool withWallpaper = false;
    unsigned timeoutSeconds = 10; ///< for each step of the reading
};

/// Reads real devices and writes a scenario that the simulator plays, without their secrets.
Result<int> recordCommand(const RecordOptions& options);

} // namespace tdw::simulator
