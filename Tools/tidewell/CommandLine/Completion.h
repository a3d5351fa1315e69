#pragma once

#include "CommandLine/CommandTable.h"

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tdw::cli {

/// The completion script for a shell: "bash", "zsh" or "fish".
std::string completionScript(std::string_view shell);

// One per shell.
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

// What they are put together from.

/// The shell command that prints the UDIDs of the devices that are listed now. Shells evaluate what
/// they are offered, and what a device says of itself is not to be trusted: nothing but a UDID's
/// own characters gets through.
inline constexpr std::string_view kDeviceCandidates
    = "tidewell list 2>/dev/null | awk 'NR > 1 && $1 ~ /^[0-9A-Fa-f-]+$/ { print $1 }'";

/// A script's frame with each placeholder, such as "@COMMANDS@", replaced by its text.
std::string filled(
    std::string_view frame, const std::vector<std::pair<std::string_view, std::string>>& texts);

/// The names of all commands, with blanks between.
std::string commandNames();

/// The names of the options that a command takes (null: of all options), with blanks between.
std::string optionNames(const Command* command);

/// Choices with blanks between.
std::string choiceNames(std::span<const std::string_view> choices);

} // namespace tdw::cli
