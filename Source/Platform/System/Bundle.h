#pragma once

#include "Platform/Export.h"

#include <optional>
#include <string>
#include <string_view>

namespace tdw {

/// Where the executables that belong to the framework are.
///
///     auto path = Bundle::mainBundle().pathForAuxiliaryExecutable("tdw_list");
///
/// Immutable; safe for use by several threads at once.
class TDW_EXPORT Bundle {
public:
    /// The bundle that this code belongs to: found from where the library itself is (or the
    /// program that it is linked into), so that an installation may be moved as a whole.
    static Bundle mainBundle();

    /// A bundle whose executables are in the given directory.
    explicit Bundle(std::string auxiliaryDirectory);

    /// The directory of the executables; empty where this code's own place cannot be told.
    const std::string& auxiliaryDirectory() const { return m_auxiliaryDirectory; }

    /// The file that the bundle was found from, with all links resolved: the library, or the
    /// program with the library inside. Empty for a bundle that was made from a directory.
    const std::string& library() const { return m_library; }

    /// The path that an executable of this name has, whether it exists or not. None for what is no
    /// plain file name: an empty one, ".", "..", one with a slash or a NUL.
    std::optional<std::string> pathForAuxiliaryExecutable(std::string_view name) const;

private:
    std::string m_auxiliaryDirectory;
    std::string m_library;
};

} // namespace tdw
