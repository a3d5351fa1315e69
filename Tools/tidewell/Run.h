#pragma once

#include "Output/Console.h"

#include <string>
#include <vector>

namespace tdw::cli {

/// Does what the command line says, from reading it to reporting what went wrong.
/// @param texts what follows the program's name
/// @return the exit status
int run(const std::vector<std::string>& texts, const Console& console);

} // namespace tdw::cli
