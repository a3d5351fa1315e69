#pragma once

#include "Platform/Values/Result.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace tdw::cli {

struct CommandContext;

/// What a word after a command is; completion offers accordingly.
enum class WordKind { Device, Command, Choice, Text };

/// A word that a command takes.
struct Word {
    /// As usage lines show it.
    std::string_view name;
    WordKind kind = WordKind::Text;
    /// What may be given, for `WordKind::Choice`.
    std::span<const std::string_view> choices {};
    bool isOptional = false;
    /// Whether it may be given any number of times; for the last word of a command.
    bool isRepeated = false;
};

enum class ValueKind { None, Choice, Seconds, Pixels, File };

struct Option {
    /// With its dashes.
    std::string_view name;
    /// The one-letter form with its dash, or nothing.
    std::string_view shortName {};
    ValueKind valueKind = ValueKind::None;
    /// As usage lines show the value.
    std::string_view valueName {};
    /// What may be given, for `ValueKind::Choice`.
    std::span<const std::string_view> choices {};
    std::string_view help;
};

/// One command of the tool.
struct Command {
    std::string_view name;
    std::span<const Word> words;
    /// The options that it takes beside those that every command takes.
    std::span<const std::string_view> options;
    /// One line.
    std::string_view help;
    /// What else its users should know, or nothing.
    std::string_view description;
    Result<void> (*function)(const CommandContext&);
    /// Whether it wants the steps of its requests, however little else is said.
    bool collectsTrace = false;

    std::size_t fewestWords() const;
};

/// The commands and the options: help, completion and parsing come from these two tables, and the
/// manual page is tested against them.
std::span<const Command> commandTable();
std::span<const Option> optionTable();

/// The command of this name, or null.
const Command* findCommand(std::string_view name);

/// The option of this name (short or long, with its dashes), or null.
const Option* findOption(std::string_view name);

/// Whether a command takes an option.
bool takesOption(const Command& command, const Option& option);

/// "tidewell help [COMMAND]"
std::string usageLine(const Command& command);

} // namespace tdw::cli
