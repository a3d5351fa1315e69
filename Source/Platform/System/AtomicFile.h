#pragma once

#include "Platform/Values/Result.h"

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace tdw {

enum class Overwrite { No, Yes };

/// Refuses a file that `writeWholeFile` would refuse, before any work is done for it.
/// Errors: `kPosixErrorDomain`, naming the path: EEXIST for a file that is there already, EINVAL
/// for what is no ordinary file, else what the system says.
Result<void> checkFileDestination(const std::string& path, Overwrite overwrite);

/// Writes a file so that it is there with all its bytes or as it was before: whatever happens on
/// the way, a full disk, an interruption or a crash of the system.
///
/// A file that is there already is only replaced with `Overwrite::Yes`, even if it comes into being
/// in the same moment; what is no ordinary file is never replaced. A symbolic link to a file stays
/// one.
/// @param mode the file's permissions; none: those of the file that is there, or those that the
///        system gives to a new one
/// Errors: those of `checkFileDestination`
Result<void> writeWholeFile(const std::string& path, std::span<const std::byte> bytes,
    Overwrite overwrite, std::optional<mode_t> mode = std::nullopt);

} // namespace tdw
