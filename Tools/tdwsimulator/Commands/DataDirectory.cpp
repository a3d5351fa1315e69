#include "Commands/DataDirectory.h"

#include "Model/SimulatorError.h"

namespace tdw::simulator {

Result<std::filesystem::path> dataDirectory()
{
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return Error::posix(error.value(), "Cannot read /proc/self/exe");
    const auto directory = executable.parent_path().parent_path() / TDWSIMULATOR_DATA_DIR;
    if (!std::filesystem::is_directory(directory, error))
        return simulatorError(
            "the data files are missing: there is no directory " + directory.string());
    return directory;
}

} // namespace tdw::simulator
