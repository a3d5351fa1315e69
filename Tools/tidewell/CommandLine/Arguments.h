#pragma once

#include "CommandLine/CommandTable.h"
#include "Platform/Values/Result.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// A command line that has been understood and checked against the tables.
struct Arguments {
    /// Null where only an option such as --help was given.
    const Command* command = nullptr;

    /// The words after the command, as many as it takes.
    std::vector<std::string> words;

    /// The options that were given, by their long names, with their values.
    std::map<std::string, std::string, std::less<>> options;

    bool has(std::string_view option) const { return options.count(option) > 0; }

    /// The value of an option, or null where it was not given.
    const std::string* valueOf(std::string_view option) const
    {
        const auto found = options.find(option);
        return found == options.end() ? nullptr : &found->second;
    }

    /// The value of an option that takes a time.
    std::optional<std::chrono::seconds> secondsOf(std::string_view option) const;

    /// The value of an option that takes a number of pixels.
    std::optional<int> pixelsOf(std::string_view option) const;
};

/// A command line taken apart, not yet checked.
struct RawArguments {
    std::vector<std::string> words;
    std::vector<std::string> unknownOptions;
    std::map<std::string, std::string, std::less<>> options;
};

/// Takes a command line apart.
/// @param texts what follows the program's name
/// Errors: `ExitStatus::Usage`
Result<RawArguments> splitArguments(const std::vector<std::string>& texts);

/// Checks a command line against the tables. Errors: `ExitStatus::Usage`, each quoting what is
/// wrong and naming what was probably meant.
Result<Arguments> checkArguments(RawArguments raw);

/// The error of a command that there is none of.
Error unknownCommandError(const std::string& name);

} // namespace tdw::cli
