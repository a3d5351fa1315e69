#pragma once

#include "Platform/Result.h"

#include <cstddef>
#include <span>
#include <string>

namespace tdw::cli {

enum class Overwrite { No, Yes };

/// Refuses a file that `writeWholeFile` would refuse, before any work is done for it.
Result<void> checkDestination(const std::string& path, Overwrite overwrite);

/// Writes a file so that it is there with all its bytes or as it was before: whatever happens on
/// the way, a full disk, an interruption or a crash of the system.
///
/// A file that is there already is only replaced with `Overwrite::Yes`, even if it comes into being
/// in the same moment; what is no ordinary file is never replaced. A symbolic link to a file stays
/// one. Errors: `ExitStatus::Failure`
Result<void> writeWholeFile(
    const std::string& path, std::span<const std::byte> bytes, Overwrite overwrite);

} // namespace tdw::cli
