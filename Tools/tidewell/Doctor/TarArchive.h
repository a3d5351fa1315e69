#pragma once

#include "Platform/Values/Data.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

struct ArchivedFile {
    /// At most 100 bytes.
    std::string name;
    std::string text;
};

/// The files as one POSIX archive, which every `tar` reads.
Data tarArchive(const std::vector<ArchivedFile>& files, std::chrono::system_clock::time_point time);

} // namespace tdw::cli
