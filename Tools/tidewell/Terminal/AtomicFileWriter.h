#pragma once

#include "Platform/Values/Result.h"

#include <cstddef>
#include <span>
#include <string>

namespace tdw::cli {

enum class Overwrite { No, Yes };

/// Refuses a file that `writeFileAtomically` would refuse, before any work is done for it.
Result<void> checkDestination(const std::string& path, Overwrite overwrite);

/// Writes a file so that it is there with all its bytes or as it was before: whatever happens on
/// the way, a full disk, an interruption or a crash of the system.
///
/// A file that is there already is only replaced with `Overwrite::Yes`, even if it comes into being
/// in the same moment; what is no ordinary file is never replaced. A symbolic link to a file stays
/// one, and the permissions of the file stay as they are. Errors: `ExitStatus::Failure`
Result<void> writeFileAtomically(
    const std::string& path, std::span<const std::byte> bytes, Overwrite overwrite);

} // namespace tdw::cli
