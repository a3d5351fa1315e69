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

/// Instead of a shell: writes the devices that the scripts offer.
inline constexpr std::string_view kDeviceCompletion = "devices";

/// The shell command that prints the devices that are listed now, a UDID and perhaps a tab and a
/// name on each line, within a second. Shells evaluate what they are offered, and a device's name
/// is not trusted: the scripts quote it, and only a UDID's own characters get through as one.
inline constexpr std::string_view kDeviceCandidates
    = "timeout 1 tidewell completion devices 2>/dev/null | awk -F '\\t' '$1 ~ "
      "/^[0-9A-Fa-f-]+$/ { print }'";

/// A script's frame with each placeholder, such as "@COMMANDS@", replaced by its text.
std::string filled(
    std::string_view frame, const std::vector<std::pair<std::string_view, std::string>>& texts);

/// The names of all commands, with blanks between.
std::string commandNames();

/// The names of the options that a command takes (null: of all options), with blanks between.
std::string optionNames(const Command* command);

/// A text in single quotes, as all three shells read it.
std::string singleQuoted(std::string_view text);

/// Choices with blanks between.
std::string choiceNames(std::span<const std::string_view> choices);

} // namespace tdw::cli
