#include "Platform/System/Bundle.h"

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

/// The shared library or program that holds this code; empty if unknown.
fs::path ownFile()
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
        return fs::read_symlink("/proc/self/exe", error);
    return fs::canonical(object->l_name, error);
}

} // namespace

Bundle Bundle::mainBundle()
{
    const fs::path own = ownFile();
    if (own.empty())
        return Bundle({});
    fs::path directory;
    for (const char* relative : kRelativeDirectories) {
        std::error_code error;
        const fs::path candidate = (own.parent_path() / relative).lexically_normal();
        const bool exists = fs::is_directory(candidate, error);
        if (exists || directory.empty())
            directory = candidate;
        if (exists)
            break;
    }
    Bundle bundle(directory.string());
    bundle.m_library = own.string();
    return bundle;
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
