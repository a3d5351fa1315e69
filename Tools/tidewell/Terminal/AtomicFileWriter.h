#pragma once

#include "Platform/System/AtomicFile.h"

namespace tdw::cli {

using tdw::Overwrite;

/// `tdw::checkFileDestination` with an error to be shown: `ExitStatus::Failure`
Result<void> checkDestination(const std::string& path, Overwrite overwrite);

/// `tdw::writeWholeFile` with an error to be shown: `ExitStatus::Failure`
Result<void> writeFileAtomically(
    const std::string& path, std::span<const std::byte> bytes, Overwrite overwrite);

} // namespace tdw::cli
