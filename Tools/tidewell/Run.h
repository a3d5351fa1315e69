#pragma once

#include "Terminal/Console.h"

#include <string>
#include <vector>

namespace tdw::cli {

/// Reads the command line, runs the command, and reports what went wrong.
/// @param texts what follows the program's name
/// @return the exit status
int run(const std::vector<std::string>& texts, const Console& console);

} // namespace tdw::cli
