#pragma once

#include "CommandLine/CommandTable.h"

#include <string>

namespace tdw::cli {

/// What `tidewell --help` writes.
std::string overviewText();

/// What `tidewell COMMAND --help` writes.
std::string commandHelpText(const Command& command);

} // namespace tdw::cli
