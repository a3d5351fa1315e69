#include "Platform/Bundle.h"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <system_error>
#include <utility>

namespace tdw {

namespace {

namespace fs = std::filesystem;

/// The directories of the executables, relative to the library's: as installed, and as in the
/// build tree and in a program that has the library inside (which differ where the libraries'
/// directory is a nested one).
constexpr const char* kRelativeDirectories[] { TIDEWELL_LIBEXEC_FROM_LIB, "../libexec/tidewell" };

/// The directory of the shared library or program that holds this code; empty if unknown.
fs::path ownDirectory()
{
    Dl_info information {};
    link_map* object = nullptr;
    if (::dladdr1(
            kRelativeDirectories, &information, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP)
        == 0)
        return {};
    std::error_code error;
    // The main program has no name in the loader's list.
    if (object->l_name == nullptr || *object->l_name == '\0')
        return fs::read_symlink("/proc/self/exe", error).parent_path();
    return fs::canonical(object->l_name, error).parent_path();
}

} // namespace

Bundle Bundle::mainBundle()
{
    const fs::path own = ownDirectory();
    if (own.empty())
        return Bundle({});
    for (const char* relative : kRelativeDirectories) {
        std::error_code error;
        const fs::path directory = (own / relative).lexically_normal();
        if (fs::is_directory(directory, error))
            return Bundle(directory.string());
    }
    return Bundle((own / kRelativeDirectories[0]).lexically_normal().string());
}

Bundle::Bundle(std::string auxiliaryDirectory)
    : m_auxiliaryDirectory(std::move(auxiliaryDirectory))
{
}

std::optional<std::string> Bundle::pathForAuxiliaryExecutable(std::string_view name) const
{
    constexpr std::string_view kForbidden("/\0", 2);
    if (m_auxiliaryDirectory.empty() || name.empty() || name == "." || name == ".."
        || name.find_first_of(kForbidden) != std::string_view::npos)
        return std::nullopt;
    return m_auxiliaryDirectory + "/" + std::string(name);
}

} // namespace tdw
